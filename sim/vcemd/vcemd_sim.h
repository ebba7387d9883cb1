// The simulated platform daemon's own files and its one private command,
// shared by the daemon, vexosim (start, stop) and the stand-in connector
// tool.
#pragma once

namespace vexosim::vcemd {

// Every request, notification and signal the daemon receives, one line
// each (appliance path; the daemon appends).
inline constexpr const char *kLogFile = "/var/log/vcemd_sim.log";
// Read before each answer: lines "slow=MS", "mute", "fail". Absent: prompt,
// answering and successful.
inline constexpr const char *kControlFile = "/tmp/vcemd_sim.control";
// What the stand-in vexo_vcemd_connector tool sends for "-signal N": the
// number in decimal as data, with a reply wanted, so that the tool's exit
// status carries the daemon's answer.
inline constexpr int kNotifyCommand = 1;

} // namespace vexosim::vcemd
