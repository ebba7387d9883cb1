/*
 * libvexoplatform archive reader: signed firmware and package archives.
 * Pure C.
 *
 * File format. A signed archive is a container followed by a fixed trailer:
 *
 *   container   a tar stream (ustar, pax or GNU), uncompressed, gzip or xz
 *   trailer     96 bytes at the very end of the file, integers little-endian:
 *                 0  "VEXOSIG1"           8 bytes
 *                 8  key type             uint32 (7 firmware, 8 package)
 *                12  flags                uint32, 0
 *                16  container size       uint64, file size - 96
 *                24  signature            64 bytes, Ed25519
 *                88  "VEXOEND1"           8 bytes
 *
 * The signature is Ed25519 over the 56-byte message
 *   "VEXOSA\0\1" | key type (uint32) | 0 (uint32) | container size (uint64)
 *   | SHA-256 of the container (32 bytes),
 * so a signature cannot be moved to another key type or another length.
 *
 * Keys. The public key of key type N is the PEM file (SubjectPublicKeyInfo)
 * /usr/vexo/etc/archive-keys/N.pem under the sysroot. Key types are numbers
 * from 1 to 255; the library uses 7 for firmware and 8 for packages.
 *
 * What is refused, at open and again while extracting:
 *   - entry names that are absolute, empty or hold a ".." component;
 *   - symbolic links whose target is absolute or leaves the directory, and
 *     any entry written through a symbolic link;
 *   - hard links, devices, fifos and sockets;
 *   - more than VEXOARCHIVE_MAX_ENTRIES entries, or more than
 *     VEXOARCHIVE_MAX_UNPACKED bytes of file data once unpacked (counted
 *     from the headers at open and from the bytes actually written while
 *     extracting). VEXO_ARCHIVE_MAX_UNPACKED (bytes, read with
 *     secure_getenv) can lower that bound, never raise it;
 *   - files larger than VEXOARCHIVE_MAX_FILE bytes.
 * The verified container is held in memory from open to free, so what is
 * extracted is exactly what was verified even if the file changes.
 *
 * On an extraction failure, what was written so far stays in the working
 * directory: extract into a scratch directory and move the result.
 */
#ifndef VEXOPLATFORM_VEXOARCHIVE_H
#define VEXOPLATFORM_VEXOARCHIVE_H

#include <vexoplatform/vexoexport.h>

#ifndef VEXOP_API
#define VEXOP_API VEXO_API
#endif

VEXO_BEGIN_DECLS

#define VEXOARCHIVE_KEY_FIRMWARE 7
#define VEXOARCHIVE_KEY_PACKAGE 8

#define VEXOARCHIVE_TRAILER_SIZE 96
#define VEXOARCHIVE_MAX_FILE (256LL << 20)
#define VEXOARCHIVE_MAX_UNPACKED (1LL << 30)
#define VEXOARCHIVE_MAX_ENTRIES 10000

/* Return codes, also left in the record's returnCode. */
#define VEXOARCHIVE_OK 0
#define VEXOARCHIVE_ERR_ARG (-1)       /* a bad argument */
#define VEXOARCHIVE_ERR_IO (-2)        /* the file cannot be opened or read */
#define VEXOARCHIVE_ERR_FORMAT (-3)    /* no trailer, bad sizes, or not a tar stream */
#define VEXOARCHIVE_ERR_NOKEY (-4)     /* no usable public key for the key type */
#define VEXOARCHIVE_ERR_SIGNATURE (-5) /* the signature does not verify */
#define VEXOARCHIVE_ERR_KEYTYPE (-6)   /* signed for another key type */
#define VEXOARCHIVE_ERR_PATH (-7)      /* an entry would land outside the directory */
#define VEXOARCHIVE_ERR_TYPE (-8)      /* a hard link, device, fifo or socket */
#define VEXOARCHIVE_ERR_TOOBIG (-9)    /* past the entry, file or unpacked bound */
#define VEXOARCHIVE_ERR_WRITE (-10)    /* writing the unpacked files failed */
#define VEXOARCHIVE_ERR_STATE (-11)    /* not opened, or no working directory */

typedef struct VEXOARCHIVE {
	char workingDirectory[4096]; /* appliance path; "" when only opening */
	char fileName[256];          /* the first regular file's name, after open */
	int returnCode;              /* the last call's result */
	int keyType;                 /* as opened; 0 before */
	void *priv;                  /* the verified container; the reader's own */
} VEXOARCHIVE;

/* A reader for workingDirectory (may be ""). NULL on a null or too long
   argument, or when out of memory. */
VEXOP_API VEXOARCHIVE *vexoarchive_init(const char *workingDirectory);
/* Reads and verifies the archive against keyType's key and checks every
   entry. 0 or a code above. */
VEXOP_API int vexoarchive_open_with_keytype(VEXOARCHIVE *archive, const char *path, int keyType);
/* Unpacks every entry into the (existing) working directory. flags must be
   0; keyType must be the one the archive was opened with. 0 or a code. */
VEXOP_API int vexoarchive_extract_multiple(VEXOARCHIVE *archive, int flags, int keyType);
VEXOP_API void vexoarchive_free(VEXOARCHIVE *archive);
/* A short English text for a return code. */
VEXOP_API const char *vexoarchive_strerror(int code);

VEXO_END_DECLS

#endif
