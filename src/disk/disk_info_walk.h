// Listing disks, shared by DiskInfoEnum, the snapshot writer and the CLI:
// the walk of /sys by port type, the snapshot reader, and the choice
// between them. Not exported.
#pragma once

#include <cstddef>
#include <cstdint>

#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>

#include "frame/unique.h"

namespace vexo::disk {

// One port type into *list (appended). The count, or -1.
int enumPortType(DiskListNode **list, int portType, const DiskEnumHibStatus *status);

// The direct walk: the types the filter selects (all when it or its mask
// is null), in the order 1, 3, 7, 4, 2, 11. The count with *list set, or
// -1 with *list untouched.
// status (may be null) as in enumPortType: all hibernating reads no
// temperature, so that no drive is asked.
int walkSystem(const DiskEnumFilter *filter, DiskListNode **list, const DiskEnumHibStatus *status = nullptr);

// The order in which the snapshot writer runs the types.
inline constexpr int kSnapshotOrder[] = {1, 3, 7, 11, 4, 2};

// Called with the names of a port type after they were globbed and before
// any of them is read; tests use it to take a disk away in between.
using NamesHook = void (*)(int portType, PVLIBSZLIST names);
extern NamesHook gAfterNamesHook;

// The entry of a record, and a record from an entry (secureErasing 0).
// `entry` keeps its reserved bytes.
void encodeEntry(const DiskInfo &info, DiskInfoFileEntry &entry);
void decodeEntry(const DiskInfoFileEntry &entry, DiskInfo &info);

enum class Source { None, Snapshot, Walk };

// What a snapshot read gave.
enum class SnapshotRead {
	Listed,  // *list holds at least one disk; the result is the count
	Missing, // no file
	Empty,   // fewer than 320 bytes
	NoMatch, // entries, none of them selected
	Failed,  // a read error, no memory or a null filter: -1
};

// Opens the snapshot for reading. /tmp is anyone's: a link is not followed,
// a FIFO is not waited on, and only a regular file is taken. Invalid when
// there is none (logged unless the file is simply absent).
UniqueFd openSnapshot();

// Reads the snapshot, keeping the entries of the filter's mask. On Listed
// *count is the number and *list its head.
SnapshotRead readSnapshot(const DiskEnumFilter *filter, DiskListNode **list, int *count);

// DiskInfoEnum, telling which way it went; a walk reads temperatures as
// walkStatus allows (null: every disk's).
int collect(const DiskEnumFilter *filter, DiskListNode **list, Source *used,
	    const DiskEnumHibStatus *walkStatus = nullptr);

} // namespace vexo::disk
