// What the remaining-life calls share inside the library.
#pragma once

namespace vexo::life {

// The user's threshold: 1 with the value when remain_life_thr_enable is
// "yes", 0 with -1 when it is not (the value unread), -1 when the value
// can't be read (logged).
int userThreshold(int &value);

// Whole months in a number of days left: 30-day months within the year,
// twelve for each full year.
constexpr int monthsOfDays(int days) { return (days % 365) / 30 + (days / 365) * 12; }

} // namespace vexo::life
