#pragma once
// Today's date where the user is.
// Threads: any; nothing is kept between calls.

namespace qx {

struct LocalDate {
  int year;
  int month;  ///< 1 to 12
  int day;    ///< 1 to 31
};
LocalDate Today();

}  // namespace qx
