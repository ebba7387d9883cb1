/*
 * The plug of the device seam. A shared object named by VEXO_DEVICE_BACKEND
 * exports vexo_device_backend_v1(), returning a table that replaces the
 * kernel for every device open and control operation of the process.
 * Pure C.
 *
 * Every operation returns what the system call it stands for returns, and
 * sets errno the same way. `hostPath` is the path under the sysroot;
 * `appliancePath` is the path the library asked for ("/dev/sda").
 * Handles are non-negative integers chosen by the backend; a backend may
 * forward real device nodes to the kernel and hand out their descriptors.
 */
#ifndef VEXOPLATFORM_DEVICE_BACKEND_H
#define VEXOPLATFORM_DEVICE_BACKEND_H

#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vexo_device_backend {
	int (*open)(const char *hostPath, const char *appliancePath, int flags);
	int (*ioctl)(int handle, unsigned long request, void *arg);
	ssize_t (*read)(int handle, void *buf, size_t len);
	ssize_t (*write)(int handle, const void *buf, size_t len);
	int (*close)(int handle);
} vexo_device_backend;

#define VEXO_DEVICE_BACKEND_SYMBOL "vexo_device_backend_v1"
typedef const vexo_device_backend *(*vexo_device_backend_fn)(void);

#ifdef __cplusplus
}
#endif

#endif
