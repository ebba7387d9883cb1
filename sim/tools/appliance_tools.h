#pragma once

namespace vexosim::tools {

// dhm_tool's exit statuses: the drive's product line, or busy (try again).
inline constexpr int kDhmLine1 = 50, kDhmLine2 = 51, kDhmBusy = 16;

int vexostorage(int argc, char **argv);
int dhmTool(int argc, char **argv);
int vexoSmartTest(int argc, char **argv); // vexo_smart_test.cpp
int vexoDriveBundle(int argc, char **argv); // vexo_drive_bundle.cpp
// vexo_vcemd_connector -signal N, through the library's connector client.
int vcemdConnector(int argc, char **argv);

} // namespace vexosim::tools
