/* Export and linkage macros shared by every public header. Pure C. */
#ifndef VEXOHW_VEXO_EXPORT_H
#define VEXOHW_VEXO_EXPORT_H

#if defined(__GNUC__)
#define VEXO_API __attribute__((visibility("default")))
#else
#define VEXO_API
#endif

#ifdef __cplusplus
#define VEXO_BEGIN_DECLS extern "C" {
#define VEXO_END_DECLS }
#else
#define VEXO_BEGIN_DECLS
#define VEXO_END_DECLS
#endif

#endif
