// The names in the texts of dates, for writing and for reading them. All are zero-terminated.
#pragma once

#include <string_view>

namespace TAVU::lumo {

inline constexpr std::string_view kShortDayNames[] = {"Sun", "Mon", "Tue", "Wed",
                                                      "Thu", "Fri", "Sat"};
inline constexpr std::string_view kFullDayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                     "Thursday", "Friday", "Saturday"};
inline constexpr std::string_view kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace TAVU::lumo
