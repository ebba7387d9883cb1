/* Export and linkage macros shared by every public header. Pure C. */
#ifndef VEXOHW_VEXO_EXPORT_H
#define VEXOHW_VEXO_EXPORT_H

#include <vexoplatform/vexoexport.h>

#endif
