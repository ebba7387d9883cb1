/*
 * libvexoplatform: the boot sequence. Pure C.
 *
 * The boot scripts write the step they have reached, a decimal number, to
 * /run/vexoboot/step under the appliance root; 4 means the appliance is up
 * (services running, the network usable). The other values belong to the
 * boot scripts. A root without the file is taken as up: nothing there
 * tracks its boot.
 */
#ifndef VEXOPLATFORM_BOOTSEQ_H
#define VEXOPLATFORM_BOOTSEQ_H

#include <vexoplatform/vexoexport.h>

VEXO_BEGIN_DECLS

#define VEXO_BOOT_STEP_FILE "/run/vexoboot/step"
#define VEXO_BOOT_STEP_RUNNING 4

/* The boot step; 4 without a step file; -1 (0x0A00) for a file that holds
 * no number. */
VEXOP_API int VEXOSystemGetBootStep(void);

VEXO_END_DECLS

#endif
