// INI files: the entry list, its first-match lookup, and a reader that fills
// the list from text or from a file.
//
// The object mirrors the file: one entry per non-blank line, in file order.
// Key lines carry section, key and value; comment and section-header lines
// are entries without a key (their text is kept, lookups skip them). Because
// entries keep file order and the lookup returns the first match, the first
// occurrence of a repeated key is the one a caller sees.
//
// A parse builds its entries on a private list and splices them on only when
// the whole text was good, so a failed parse leaves the object unchanged.
//
// No locking: an object belongs to one thread at a time.
#include <cerrno>
#include <cstring>
#include <string_view>

#include "internal/qvinternal.h"
#include "platform/qvplat_readfile.h"

namespace {

struct IniEntry {
    void *link;       // reserved for a future ordered index; always null
    IniEntry *next;
    char *text;       // the line as read, trimmed
    char *section;    // may be null: outside every section
    char *key;        // null for comments and section headers
    char *value;      // null exactly when key is
};

struct EntryList {
    IniEntry *last;   // for appending in file order
    IniEntry *first;
};

}  // namespace

struct qv_inifile {
    EntryList *entries;
};

namespace {

void entry_free(IniEntry *e) noexcept {
    qv_free(e->text);
    qv_free(e->section);
    qv_free(e->key);
    qv_free(e->value);
    qv_free(e);
}

void entries_free(IniEntry *e) noexcept {
    while (e != nullptr) {
        IniEntry *next = e->next;
        entry_free(e);
        e = next;
    }
}

inline bool is_space(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

std::string_view trim(std::string_view s) noexcept {
    while (!s.empty() && is_space(s.front())) s.remove_prefix(1);
    while (!s.empty() && is_space(s.back())) s.remove_suffix(1);
    return s;
}

// A NUL-terminated copy; null views stay null.
bool copy_into(char **dest, const char *src, size_t len) noexcept {
    if (src == nullptr) return true;
    *dest = qv_strndup(src, len);
    return *dest != nullptr;
}

// The entries being read, with the section they currently fall under.
struct Reader {
    IniEntry *first = nullptr;
    IniEntry *last = nullptr;
    std::string_view section;
    bool insection = false;

    ~Reader() { entries_free(first); }

    bool append(std::string_view text, const char *key, size_t keylen, const char *value,
                size_t valuelen) noexcept {
        auto *e = static_cast<IniEntry *>(qv_cmalloc(sizeof(IniEntry)));
        if (e == nullptr) return false;
        if (!copy_into(&e->text, text.data(), text.size()) ||
            !copy_into(&e->section, insection ? section.data() : nullptr, section.size()) ||
            !copy_into(&e->key, key, keylen) || !copy_into(&e->value, value, valuelen)) {
            entry_free(e);
            return false;
        }
        if (last != nullptr)
            last->next = e;
        else
            first = e;
        last = e;
        return true;
    }
};

// What is wrong with a line, or null when it is well-formed.
const char *classify_and_store(Reader &r, std::string_view line, bool *nomemory) noexcept {
    *nomemory = false;
    if (line.find('\0') != std::string_view::npos) return "a zero byte in the line";
    line = trim(line);
    if (line.empty()) return nullptr;
    if (line.front() == ';' || line.front() == '#') {
        *nomemory = !r.append(line, nullptr, 0, nullptr, 0);
        return nullptr;
    }
    if (line.front() == '[') {
        if (line.back() != ']') return "missing ']' after the section name";
        std::string_view name = trim(line.substr(1, line.size() - 2));
        if (name.empty()) return "empty section name";
        if (name.find_first_of("[]") != std::string_view::npos) return "bracket inside the section name";
        r.section = name;
        r.insection = true;
        *nomemory = !r.append(line, nullptr, 0, nullptr, 0);
        return nullptr;
    }
    size_t eq = line.find('=');
    if (eq == std::string_view::npos) return "missing '=' after the key";
    std::string_view key = trim(line.substr(0, eq));
    if (key.empty()) return "empty key";
    std::string_view value = trim(line.substr(eq + 1));
    *nomemory = !r.append(line, key.data(), key.size(), value.data(), value.size());
    return nullptr;
}

// Parses text onto the object; filename (or null) only names the source in
// the log.
int parse_into(qv_inifile *inifile, std::string_view text, const char *filename) noexcept {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
    Reader r;
    unsigned long lineno = 0;
    while (!text.empty()) {
        ++lineno;
        size_t nl = text.find('\n');
        std::string_view line = text.substr(0, nl);
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
        bool nomemory = false;
        const char *problem = classify_and_store(r, line, &nomemory);
        if (nomemory) {
            QV_LOG(7, "not enough memory for INI entry of line %lu", lineno);
            return QV_ERROR_NO_MEMORY;
        }
        if (problem != nullptr) {
            if (filename != nullptr)
                QV_LOG(6, "unable to parse line %lu of INI file '%s' (%s), error %d (%s)", lineno, filename,
                       problem, QV_ERROR_INVALID_SYNTAX, qv_error_string(QV_ERROR_INVALID_SYNTAX));
            else
                QV_LOG(6, "unable to parse INI line %lu (%s), error %d (%s)", lineno, problem,
                       QV_ERROR_INVALID_SYNTAX, qv_error_string(QV_ERROR_INVALID_SYNTAX));
            return QV_ERROR_INVALID_SYNTAX;
        }
    }
    if (r.first != nullptr) {
        EntryList *list = inifile->entries;
        if (list->last != nullptr)
            list->last->next = r.first;
        else
            list->first = r.first;
        list->last = r.last;
        r.first = r.last = nullptr;
    }
    return QV_ERROR_NONE;
}

int map_file_error(int err) noexcept {
    switch (err) {
    case ENOENT: return QV_ERROR_NOT_FOUND;
    case EACCES: return QV_ERROR_PERMISSION_DENIED;
    case EPERM: return QV_ERROR_NOT_PERMITTED;
    case ENOTDIR: return QV_ERROR_NOT_DIRECTORY;
    case ENAMETOOLONG: return QV_ERROR_NAME_TOO_LONG;
    case ELOOP: return QV_ERROR_SYMLINK_LOOP;
    case ENOMEM: return QV_ERROR_NO_MEMORY;
    default: return QV_ERROR_IO;
    }
}

}  // namespace

extern "C" {

QV_API qv_inifile *qv_inifile_create(int *error) noexcept {
    if (error != nullptr) *error = QV_ERROR_NO_MEMORY;
    auto *qvinifile = static_cast<qv_inifile *>(qv_cmalloc(sizeof(qv_inifile)));
    if (qvinifile == nullptr) {
        QV_LOG(7, "not enough memory for inifile structure");
        return nullptr;
    }
    qvinifile->entries = static_cast<EntryList *>(qv_cmalloc(sizeof(EntryList)));
    if (qvinifile->entries == nullptr) {
        QV_LOG(7, "not enough memory for inifile entry list");
        qv_free(qvinifile);
        return nullptr;
    }
    if (error != nullptr) *error = QV_ERROR_NONE;
    return qvinifile;
}

QV_API const char *qv_inifile_get(const qv_inifile *inifile, const char *section, const char *key) noexcept {
    QV_ASSERT(inifile);
    QV_ASSERT(key != NULL);
    for (const IniEntry *e = inifile->entries->first; e != nullptr; e = e->next) {
        if (e->key == nullptr || strcmp(e->key, key) != 0) continue;
        if (section != nullptr ? (e->section != nullptr && strcmp(e->section, section) == 0)
                               : e->section == nullptr)
            return e->value;
    }
    return nullptr;
}

QV_API int qv_inifile_parse(qv_inifile *inifile, const char *buffer, size_t length) noexcept {
    QV_ASSERT(inifile != NULL);
    QV_ASSERT(buffer != NULL || length == 0);
    return parse_into(inifile, std::string_view(buffer != nullptr ? buffer : "", length), nullptr);
}

QV_API int qv_inifile_load(qv_inifile *inifile, const char *filename) noexcept {
    QV_ASSERT(inifile != NULL);
    QV_ASSERT(filename != NULL);
    char *data = nullptr;
    size_t len = 0;
    const char *failedcall = nullptr;
    int err = qv::plat::read_whole_file(filename, &data, &len, &failedcall);
    if (err != 0) {
        int rc = map_file_error(err);
        if (failedcall == nullptr) {
            QV_LOG(7, "not enough memory for the contents of INI file '%s'", filename);
        } else {
            QV_LOG(7, "%s() returned error %d", failedcall, err);
            QV_LOG(7, "unable to read INI file '%s', error %d (%s)", filename, rc, qv_error_string(rc));
        }
        return rc;
    }
    qv::Owned<char> owned(data);
    return parse_into(inifile, std::string_view(data, len), filename);
}

QV_API void qv_inifile_destroy(qv_inifile *qvinifile) noexcept {
    QV_ASSERT(qvinifile != NULL);
    entries_free(qvinifile->entries->first);
    qv_free(qvinifile->entries);
    qv_free(qvinifile);
}

}  // extern "C"
