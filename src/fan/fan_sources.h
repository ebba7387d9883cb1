// The temperature sources behind the table ops records.
#pragma once

#include <string>
#include <vexohw/fan_table.h>

namespace vexo::fan {

// A table type's debug override file ("" when it has none) and the source
// kind a debug reading of it reports.
std::string debugFile(int type, const VEXO_FAN_HANDLE_T *h);
int debugSource(int type);
// The debug read of a table type: 1 with the reading and *source, else 0.
int debugRead(int type, VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h, int *source);
// The hottest of the maker's adapters of a table type (8), else 0.
int nicRead(int type, VEXO_FAN_READING_T *reading);
// The hottest SAS host (9), else 0.
int sasRead(VEXO_FAN_READING_T *reading);
// A disk source over an enumeration; cache lists log as cache devices and
// read empty as "no usable reading".
int listRead(int (*enumFn)(PVLIBSZLIST *), VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h, bool cache);
int listTune(int (*enumFn)(PVLIBSZLIST *), int type, VEXO_FAN_HANDLE_T *h, int shutdown, bool cache);
int eboxRead(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h);
int eboxTune(VEXO_FAN_HANDLE_T *h, int shutdown);

} // namespace vexo::fan
