#include "base/NameOrder.hpp"

#include <unicode/ucol.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <cstdlib>
#include <limits>

namespace quorvane {
namespace {

bool isValidUTF8(std::string_view text) {
    if (text.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return false;
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    auto length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
        UChar32 c = 0;
        U8_NEXT(bytes, i, length, c);
        if (c < 0) return false;
    }
    return true;
}

}  // namespace

NameOrder::NameOrder(const std::string& locale) {
    UErrorCode status = U_ZERO_ERROR;
    collator_ = ucol_open(locale.c_str(), &status);
    if (U_FAILURE(status)) {
        ucol_close(collator_);
        collator_ = nullptr;
        return;
    }
    // Secondary strength: base letters and accents count, case does not.
    ucol_setStrength(collator_, UCOL_SECONDARY);
}

NameOrder::~NameOrder() {
    ucol_close(collator_);
}

const NameOrder& NameOrder::user() {
    static const NameOrder order(localeFromEnvironment(
        std::getenv("LC_ALL"), std::getenv("LC_COLLATE"), std::getenv("LANG")));
    return order;
}

std::string NameOrder::localeFromEnvironment(const char* lcAll, const char* lcCollate,
                                             const char* lang) {
    // The precedence the C library gives these variables for LC_COLLATE.
    for (const char* value : {lcAll, lcCollate, lang}) {
        if (value == nullptr || *value == '\0') continue;
        std::string_view name(value);
        name = name.substr(0, name.find_first_of(".@"));
        if (name == "C" || name == "POSIX") return "";
        return std::string(name);
    }
    return "";
}

bool NameOrder::less(std::string_view a, std::string_view b) const {
    bool aValid = isValidUTF8(a);
    bool bValid = isValidUTF8(b);
    // ICU would read broken bytes as U+FFFD, making different names equal. Putting
    // them after the valid ones, in byte order, keeps one consistent order, which the
    // sort algorithms need; comparing just such a pair by bytes would not.
    if (aValid != bValid) return aValid;
    if (!aValid || collator_ == nullptr) return a < b;
    UErrorCode status = U_ZERO_ERROR;
    UCollationResult result;
    {
        std::lock_guard lock(mutex_);
        result = ucol_strcollUTF8(collator_, a.data(), static_cast<int32_t>(a.size()), b.data(),
                                  static_cast<int32_t>(b.size()), &status);
    }
    // Valid text leaves ICU nothing to fail on; should it still, bytes are an order.
    if (U_FAILURE(status)) return a < b;
    return result == UCOL_LESS;
}

bool nameLess(std::string_view a, std::string_view b) {
    return NameOrder::user().less(a, b);
}

}  // namespace quorvane
