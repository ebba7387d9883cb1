// Recording errors with the caller's place: the code is the innermost one,
// the place the outermost one that passed it on.
#pragma once

#include <vexoplatform/vexoerr.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/log.h"

#define VEXO_ERR(code) VLIBCErrSetEx((code), VEXO_SRC, __LINE__)
#define VEXO_ERR_PASS() VLIBCErrSetEx(VLIBCErrGet(), VEXO_SRC, __LINE__)
