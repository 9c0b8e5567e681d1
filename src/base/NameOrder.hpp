#pragma once

#include <mutex>
#include <string>
#include <string_view>

struct UCollator;

namespace quorvane {

// Orders names the way the user reads a list in their own language: case does not
// count, an accented letter sorts beside its base letter ("alpha", "Beta", "Émile",
// "gamma"), and an accent still tells two names apart ("Emile" before "Émile"). A
// name that is not valid UTF-8 sorts after every valid one, by its bytes. Safe to
// use from several threads at once.
class NameOrder {
public:
    // The order of ICU locale `locale` ("sv_SE"); empty is ICU's root order, the one
    // most languages share. Without ICU's data, names compare by their bytes.
    explicit NameOrder(const std::string& locale);
    ~NameOrder();
    NameOrder(const NameOrder&) = delete;
    NameOrder& operator=(const NameOrder&) = delete;

    // The user's order, from the collation locale of the environment, made once on
    // first use; later changes to the environment do not move it.
    static const NameOrder& user();

    // The ICU locale that the values of LC_ALL, LC_COLLATE and LANG (null when unset)
    // select: the first one set and not empty, without its codeset and modifier
    // ("sv_SE.UTF-8" gives "sv_SE"); "C" and "POSIX" give the root order's "".
    static std::string localeFromEnvironment(const char* lcAll, const char* lcCollate,
                                             const char* lang);

    // Whether `a` sorts strictly before `b`. Equal names (differing only in case)
    // are neither, so a stable sort keeps them in the order it found them.
    bool less(std::string_view a, std::string_view b) const;

private:
    UCollator* collator_ = nullptr;
    // ICU's collator is not to be used from two threads at once. One lock, rather
    // than a clone per thread, because names are sorted rarely and by the dozen, so
    // it is never contended, and it needs no per-thread copies to own and free.
    mutable std::mutex mutex_;
};

// NameOrder::user().less(a, b): how lists of names are ordered for the user.
bool nameLess(std::string_view a, std::string_view b);

}  // namespace quorvane
