// What the remaining-life calls share inside the library.
#pragma once

namespace vexo::life {

// The user's threshold: 1 with the value when remain_life_thr_enable is
// "yes", 0 with -1 when it is not (the value unread), -1 when the value
// can't be read (logged).
int userThreshold(int &value);

} // namespace vexo::life
