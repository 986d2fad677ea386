#include <tmain/foundation/TimeParse.h>

#include <cctype>
#include <cstring>
#include <initializer_list>

namespace {

const char* const DAYS[7] = {"sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"};
const char* const MONTHS[12] = {"january", "february", "march",     "april",   "may",      "june",
                                "july",    "august",   "september", "october", "november", "december"};

void skipSpace(const char*& s) {
    while (isspace((unsigned char)*s))
        ++s;
}

/// Matches a full name or its first three letters, ignoring case; the index or -1.
int matchName(const char*& s, const char* const* names, int count) {
    for (int i = 0; i < count; ++i) {
        const size_t full = strlen(names[i]);
        for (size_t len : {full, (size_t)3}) {
            size_t k = 0;
            while (k < len && tolower((unsigned char)s[k]) == names[i][k])
                ++k;
            if (k == len) {
                s += len;
                return i;
            }
        }
    }
    return -1;
}

/// Reads up to `digits` digits as a number in [lo, hi]; false when none or out of range.
bool number(const char*& s, int digits, int lo, int hi, int& out) {
    skipSpace(s);
    // Digits are taken while the value stays in range, so "10:61" reads a
    // minute of 6 and leaves "1", as the C library does.
    int value = 0, n = 0;
    while (n < digits && isdigit((unsigned char)s[n]) && value * 10 + (s[n] - '0') <= hi)
        value = value * 10 + (s[n++] - '0');
    if (n == 0 || value < lo || value > hi)
        return false;
    s += n;
    out = value;
    return true;
}

bool leapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

const int DAYS_BEFORE_MONTH[2][13] = {{0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
                                      {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};

/// Day of the week (0 = Sunday) of a proleptic Gregorian date.
int weekday(int year, int month0, int mday) {
    static const int offsets[12] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
    if (month0 < 2)
        --year;
    return ((year + year / 4 - year / 100 + year / 400 + offsets[month0] + mday) % 7 + 7) % 7;
}

struct Parser {
    struct tm* tm;
    int century = -1, yearInCentury = -1;
    int hour12 = -1, pm = -1;
    bool date = false, haveWday = false, haveYday = false, haveMon = false, haveMday = false;

    /// Like the C library: once a date field was read, the day of the week and
    /// of the year follow from year, month and day (or month and day from the
    /// day of the year), unless the text gave them.
    void completeDate() {
        if (!date)
            return;
        const int year = tm->tm_year + 1900;
        const int(&before)[13] = DAYS_BEFORE_MONTH[leapYear(year)];
        if (!haveWday) {
            if (!(haveMon && haveMday) && haveYday && tm->tm_yday < before[12]) {
                int m = 0;
                while (before[m + 1] <= tm->tm_yday)
                    ++m;
                tm->tm_mon = m;
                tm->tm_mday = tm->tm_yday - before[m] + 1;
            }
            if (tm->tm_mon >= 0 && tm->tm_mon < 12)
                tm->tm_wday = weekday(year, tm->tm_mon, tm->tm_mday);
        }
        if (!haveYday && tm->tm_mon >= 0 && tm->tm_mon < 12)
            tm->tm_yday = before[tm->tm_mon] + tm->tm_mday - 1;
    }

    const char* parse(const char* s, const char* f) {
        for (; s && *f; ++f) {
            if (isspace((unsigned char)*f)) {
                skipSpace(s);
                continue;
            }
            if (*f != '%') {
                if (*s != *f)
                    return nullptr;
                ++s;
                continue;
            }
            ++f;
            if (*f == 'E' || *f == 'O')
                ++f;
            s = directive(s, *f);
            if (!*f)
                break;
        }
        return s;
    }

    const char* directive(const char* s, char d) {
        int v;
        switch (d) {
        case '%':
            return *s == '%' ? s + 1 : nullptr;
        case 'n':
        case 't':
            skipSpace(s);
            return s;
        case 'a':
        case 'A':
            skipSpace(s);
            if ((v = matchName(s, DAYS, 7)) < 0)
                return nullptr;
            tm->tm_wday = v;
            haveWday = true;
            return s;
        case 'b':
        case 'B':
        case 'h':
            skipSpace(s);
            if ((v = matchName(s, MONTHS, 12)) < 0)
                return nullptr;
            tm->tm_mon = v;
            date = haveMon = true;
            return s;
        case 'd':
        case 'e':
            date = haveMday = true;
            return number(s, 2, 1, 31, tm->tm_mday) ? s : nullptr;
        case 'm':
            if (!number(s, 2, 1, 12, v))
                return nullptr;
            tm->tm_mon = v - 1;
            date = haveMon = true;
            return s;
        case 'Y':
            if (!number(s, 4, 0, 9999, v))
                return nullptr;
            tm->tm_year = v - 1900;
            century = yearInCentury = -1;
            date = true;
            return s;
        case 'y':
            if (!number(s, 2, 0, 99, yearInCentury))
                return nullptr;
            setYear();
            return s;
        case 'C':
            if (!number(s, 2, 0, 99, century))
                return nullptr;
            setYear();
            return s;
        case 'j':
            if (!number(s, 3, 1, 366, v))
                return nullptr;
            tm->tm_yday = v - 1;
            date = haveYday = true;
            return s;
        case 'H':
            hour12 = -1;
            return number(s, 2, 0, 23, tm->tm_hour) ? s : nullptr;
        case 'I':
            if (!number(s, 2, 1, 12, hour12))
                return nullptr;
            setHour();
            return s;
        case 'p':
            skipSpace(s);
            if ((tolower((unsigned char)s[0]) != 'a' && tolower((unsigned char)s[0]) != 'p') ||
                tolower((unsigned char)s[1]) != 'm')
                return nullptr;
            pm = tolower((unsigned char)s[0]) == 'p';
            setHour();
            return s + 2;
        case 'M':
            return number(s, 2, 0, 59, tm->tm_min) ? s : nullptr;
        case 'S':
            return number(s, 2, 0, 60, tm->tm_sec) ? s : nullptr;
        case 'Z':
            skipSpace(s);
            while (isalpha((unsigned char)*s))
                ++s;
            return s;
        case 'T':
        case 'X':
            return parse(s, "%H:%M:%S");
        case 'R':
            return parse(s, "%H:%M");
        case 'D':
        case 'x':
            return parse(s, "%m/%d/%y");
        case 'F':
            return parse(s, "%Y-%m-%d");
        case 'r':
            return parse(s, "%I:%M:%S %p");
        case 'c':
            return parse(s, "%a %b %e %H:%M:%S %Y");
        default:
            return nullptr;
        }
    }

    void setYear() {
        date = true;
        if (century >= 0)
            tm->tm_year = century * 100 + (yearInCentury >= 0 ? yearInCentury : 0) - 1900;
        else if (yearInCentury >= 0)
            tm->tm_year = yearInCentury < 69 ? yearInCentury + 100 : yearInCentury;
    }

    void setHour() {
        if (hour12 >= 0)
            tm->tm_hour = hour12 % 12 + (pm == 1 ? 12 : 0);
    }
};

} // namespace

char* tstrptime(const char* text, const char* format, struct tm* tm) {
    if (!text || !format || !tm)
        return nullptr;
    Parser parser{tm};
    const char* rest = parser.parse(text, format);
    if (rest)
        parser.completeDate();
    return const_cast<char*>(rest);
}
