// The fields of a pattern that show nothing finer than a second.

#include "line/TimeField.h"

namespace Zyr {

namespace {

constexpr std::string_view weekdays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr std::string_view months[] = {"January", "February", "March",     "April",   "May",      "June",
                                       "July",    "August",   "September", "October", "November", "December"};

} // namespace

void putTimeField(FieldWriter& out, char letter, const CalendarText& time) noexcept
{
    switch (letter) {
    case 'w':
        out.fixed(weekdays[time.weekday].substr(0, 3));
        break;
    case 'W':
        out.fixed(weekdays[time.weekday]);
        break;
    case 'b':
        out.fixed(months[time.monthIndex].substr(0, 3));
        break;
    case 'B':
        out.fixed(months[time.monthIndex]);
        break;
    case 'd':
        out.digits(time.day);
        break;
    case 'e':
        out.digitsWithoutZero(time.day);
        break;
    case 'f':
        out.digitsWithSpace(time.day);
        break;
    case 'm':
        out.digits(time.month);
        break;
    case 'n':
        out.digitsWithoutZero(time.month);
        break;
    case 'o':
        out.digitsWithSpace(time.month);
        break;
    case 'y':
        out.digits(time.yearOfCentury);
        break;
    case 'Y':
        out.fixed(time.year());
        break;
    case 'H':
        out.digits(time.hour);
        break;
    case 'h':
        out.digits(time.hourOfHalfDay);
        break;
    case 'a':
        out.fixed(time.afternoon ? "pm" : "am");
        break;
    case 'A':
        out.fixed(time.afternoon ? "PM" : "AM");
        break;
    case 'M':
        out.digits(time.minute);
        break;
    case 'S':
        out.digits(time.secondOfMinute);
        break;
    case 'z':
        out.fixed(time.isoOffset());
        break;
    case 'Z':
        out.fixed(time.rfcOffset());
        break;
    default:
        break;
    }
}

} // namespace Zyr
