// Fuzzes qv_stringhash against std::map: the input is a program of
// operations (add, lookup, remove, enumerate, clear) on short keys. Any
// disagreement with the reference, a value destroyed twice or never, or an
// item enumerated twice aborts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <set>
#include <string>

#include "qvlib.h"

namespace {

struct Tracker {
    std::set<uintptr_t> live;  // values handed to the table and not yet destroyed
};

void destroy_value(void *value, void *context) {
    auto *t = static_cast<Tracker *>(context);
    if (t->live.erase(reinterpret_cast<uintptr_t>(value)) != 1) abort();
}

void check_enumeration(qv_stringhash *sh, const std::map<std::string, uintptr_t> &model) {
    std::map<std::string, uintptr_t> seen;
    const char *key = nullptr;
    void *value = nullptr;
    for (void *p = qv_stringhash_enumerate_start(sh, &key, &value); p != nullptr;
         p = qv_stringhash_enumerate_next(sh, p, &key, &value))
        if (!seen.emplace(key, reinterpret_cast<uintptr_t>(value)).second) abort();
    if (key != nullptr || value != nullptr || seen != model) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Tracker tracker;
    qv_stringhash *sh = qv_stringhash_create(destroy_value, &tracker);
    if (sh == nullptr) abort();
    std::map<std::string, uintptr_t> model;
    uintptr_t next_value = 1;
    size_t i = 0;
    while (i < size) {
        uint8_t op = data[i++];
        // A key of 0..15 bytes; zero bytes become 0x80 so keys stay C strings.
        size_t len = op >> 4;
        std::string key;
        for (size_t k = 0; k < len && i < size; ++k, ++i) key.push_back(data[i] != 0 ? static_cast<char>(data[i]) : '\x80');
        switch (op & 7) {
        case 0:
        case 1:
        case 2: {
            uintptr_t v = next_value++;
            tracker.live.insert(v);
            if (qv_stringhash_add(sh, key.c_str(), reinterpret_cast<void *>(v)) != 0) abort();
            auto it = model.find(key);
            if (it != model.end() && tracker.live.count(it->second) != 0) abort();  // old value destroyed
            model[key] = v;
            break;
        }
        case 3:
        case 4: {
            auto it = model.find(key);
            void *v = qv_stringhash_lookup(sh, key.c_str());
            if (reinterpret_cast<uintptr_t>(v) != (it == model.end() ? 0 : it->second)) abort();
            break;
        }
        case 5:
        case 6: {
            int rc = qv_stringhash_remove(sh, key.c_str());
            if (rc != (model.erase(key) != 0 ? 0 : -1)) abort();
            break;
        }
        default:
            if (len == 15) {
                qv_stringhash_clear(sh);
                model.clear();
                if (!tracker.live.empty()) abort();
            } else {
                check_enumeration(sh, model);
            }
        }
        if (tracker.live.size() != model.size()) abort();
    }
    check_enumeration(sh, model);
    qv_stringhash_destroy(sh);
    if (!tracker.live.empty()) abort();
    return 0;
}
