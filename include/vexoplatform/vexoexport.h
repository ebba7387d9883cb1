/*
 * Linkage macros of every public header, of libvexoplatform and of
 * libvexohw alike. Pure C.
 */
#ifndef VEXOPLATFORM_VEXOEXPORT_H
#define VEXOPLATFORM_VEXOEXPORT_H

#if defined(__GNUC__)
#define VEXO_API __attribute__((visibility("default")))
#else
#define VEXO_API
#endif

/* The platform's own calls; an implementation of its own may redefine it. */
#ifndef VEXOP_API
#define VEXOP_API VEXO_API
#endif

#ifdef __cplusplus
#define VEXO_BEGIN_DECLS extern "C" {
#define VEXO_END_DECLS }
#else
#define VEXO_BEGIN_DECLS
#define VEXO_END_DECLS
#endif

#endif
