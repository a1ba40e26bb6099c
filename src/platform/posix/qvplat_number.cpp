// POSIX backend of qvplat_number.h: strtod_l over a "C" locale object made
// once per process (newlocale is thread-safe; the object is never freed, as
// it would outlive any caller anyway).
#include <clocale>
#include <cstdlib>
#include <locale.h>

#include "platform/qvplat_number.h"

namespace qv::plat {

double strtod_c(const char *text, char **endp) noexcept {
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    if (c_locale == static_cast<locale_t>(0)) return strtod(text, endp);
    return strtod_l(text, endp, c_locale);
}

}  // namespace qv::plat
