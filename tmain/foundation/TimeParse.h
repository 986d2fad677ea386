#pragma once
/// tstrptime: strptime for every platform (the Windows C runtime has none).
#include <ctime>
#include <tmain/Export.h>

/// Parses `text` against the strptime `format` into the fields of `tm`,
/// leaving the fields the format does not name untouched. Returns a pointer
/// to the first character not consumed, or null when the text does not match.
///
/// Directives: %a %A (English day names, full or three letters, any case),
/// %b %B %h (month names, likewise), %d %e (day 1-31), %m (1-12), %y (69-99
/// are 19xx, 00-68 are 20xx), %Y, %C (century, with %y), %j (day of the year
/// 1-366), %H (0-23), %I (1-12) with %p (AM/PM), %M (0-59), %S (0-60), %Z (a
/// zone name: letters, skipped), %n %t and white space in the format (any
/// white space, also none), %% and the compounds %T (%H:%M:%S), %R (%H:%M),
/// %D (%m/%d/%y), %F (%Y-%m-%d), %r (%I:%M:%S %p), %c ("%a %b %e %H:%M:%S %Y"),
/// %x (%m/%d/%y) and %X (%H:%M:%S); the E and O modifiers are ignored.
/// Numbers take at most the digits of their field (four for a year) and may
/// be preceded by white space. Any other directive fails.
TMAIN_API char* tstrptime(const char* text, const char* format, struct tm* tm);
