// The boot step, as the boot scripts record it.
#include <cerrno>
#include <cstdio>
#include <vexoplatform/bootseq.h>

#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

extern "C" VEXOP_API int VEXOSystemGetBootStep(void)
try {
	vexo::UniqueFile f(vexo::sysroot::fopen(VEXO_BOOT_STEP_FILE, "re"));
	if (!f)
		return errno == ENOENT ? VEXO_BOOT_STEP_RUNNING : (VEXO_ERR(VEXO_ERR_FOPEN), -1);
	int step = 0;
	if (std::fscanf(f.get(), "%d", &step) != 1 || step < 0) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	return step;
} VEXO_C_CATCH(-1)
