// Locale-independent text to number conversion. The runtime's strtod follows
// the process locale (a decimal comma in de_DE), while JSON and the library's
// own formats always use a dot.
#pragma once

namespace qv::plat {

// strtod as in the "C" locale: leading white space, sign, decimal, exponent,
// hexadecimal, inf and nan forms; *endp past the last byte used.
double strtod_c(const char *text, char **endp) noexcept;

}  // namespace qv::plat
