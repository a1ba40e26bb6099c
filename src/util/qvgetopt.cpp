// Command-line option parser: options registered one by one into a doubly
// linked list (registration order is lookup order and usage order), a parse
// that stores values straight into the caller's variables, and a usage text
// in two columns (descriptions from column 30, wrapped at 49 characters).
//
// Parsing rules that differ from getopt(3) on purpose: no permutation (the
// first operand ends the options), short options never take attached values,
// and every value comes from the arguments after the option or its group.
// String values point into argv, so they live as long as argv does.
//
// A parser is used by one thread at a time; nothing is locked.
#include <cstring>

#include "internal/qvinternal.h"
#include "internal/qvlist.h"

namespace {

enum OptionKind : int {
    kHelp = 1,
    kConstString = 2,
    kInt = 3,
    kFlag = 4,
    kStringCallback = 5,
};

struct Option {
    Option *next;
    Option *prev;
    int kind;
    char shortopt;        // 0 for none
    char *longopt;        // owned, null for none
    char *optionname;     // owned, null for options without a value
    char *description;    // owned, never null once registered
    qv_getopt_string_fn callback;
    union {
        const char **conststringptr;
        int *intptr;
        void *user;
    } data;
};

struct OptionList {
    Option *head;
    Option *tail;
};

constexpr int kDescriptionColumn = 30;
constexpr size_t kDescriptionWidth = 49;
constexpr char kBlanks[kDescriptionColumn + 1] = "                              ";

void free_option(Option *option) noexcept {
    qv_free(option->longopt);
    qv_free(option->optionname);
    qv_free(option->description);
    qv_free(option);
}

}  // namespace

struct qv_getopt {
    char *synopsis;
    char *footer;
    OptionList *options;
    int optind;
    qv_getopt_error_fn errorcallback;
    void *erroruser;
    int helpshown;
};

namespace {

int add_option(qv_getopt *qvgetopt, int kind, const char *longopt, char shortopt, const char *optionname,
               const char *description, qv_getopt_string_fn callback, void *data) noexcept {
    Option *option = qv::make_zeroed<Option>();
    if (option == nullptr) {
        QV_LOG(7, "not enough memory for qvgetopt option");
        return -1;
    }
    option->kind = kind;
    option->shortopt = shortopt;
    option->callback = callback;
    option->data.user = data;
    if (longopt != nullptr && (option->longopt = qv_strdup(longopt)) == nullptr) {
        QV_LOG(7, "not enough memory for long option '%s'", longopt);
        free_option(option);
        return -1;
    }
    if (optionname != nullptr && (option->optionname = qv_strdup(optionname)) == nullptr) {
        QV_LOG(7, "not enough memory for option name");
        free_option(option);
        return -1;
    }
    if ((option->description = qv_strdup(description)) == nullptr) {
        QV_LOG(7, "not enough memory for option description");
        free_option(option);
        return -1;
    }
    qv::list_push_back(*qvgetopt->options, option);
    return 0;
}

Option *find_long(const qv_getopt *qvgetopt, const char *name) noexcept {
    for (Option *o = qvgetopt->options->head; o != nullptr; o = o->next)
        if (o->longopt != nullptr && strcmp(o->longopt, name) == 0) return o;
    return nullptr;
}

Option *find_short(const qv_getopt *qvgetopt, char c) noexcept {
    for (Option *o = qvgetopt->options->head; o != nullptr; o = o->next)
        if (o->shortopt != 0 && o->shortopt == c) return o;
    return nullptr;
}

void report(const qv_getopt *qvgetopt, int error, const char *name, const char *value) noexcept {
    if (qvgetopt->errorcallback != nullptr) qvgetopt->errorcallback(error, name, value, qvgetopt->erroruser);
}

// A value-taking option met as the last argument.
int missing_value(const qv_getopt *qvgetopt, const char *name, int level) noexcept {
    QV_LOG(level, "option '%s' requires an argument", name);
    report(qvgetopt, QV_ERROR_INVALID_SYNTAX, name, nullptr);
    return -1;
}

// Applies one met option. name is as written (dashes included); value is the
// candidate value or null when none is left. *used tells whether the value
// was taken. 0, or -1 after the failure was reported.
int apply(qv_getopt *qvgetopt, Option *option, const char *name, const char *value, bool *used) noexcept {
    *used = false;
    switch (option->kind) {
    case kHelp:
        qvgetopt->helpshown = 1;
        qv_getopt_usage(qvgetopt, stdout);
        fflush(stdout);
        return 0;
    case kConstString:
        QV_ASSERT(option->data.conststringptr != NULL);
        if (value == nullptr) return missing_value(qvgetopt, name, 13);
        *option->data.conststringptr = value;
        *used = true;
        return 0;
    case kInt: {
        QV_ASSERT(option->data.intptr != NULL);
        if (value == nullptr) return missing_value(qvgetopt, name, 6);
        *used = true;
        int64_t number = 0;
        int rc = qv_strtoi64(value, &number);
        if (rc == QV_ERROR_NONE && number >= INT32_MIN && number <= INT32_MAX) {
            *option->data.intptr = static_cast<int>(number);
            return 0;
        }
        if (rc == QV_ERROR_INVALID_SYNTAX || rc == QV_ERROR_INCOMPLETE) {
            report(qvgetopt, QV_ERROR_INVALID_ARGUMENT, name, value);
        } else if (rc == QV_ERROR_NONE || rc == QV_ERROR_OUT_OF_RANGE) {
            report(qvgetopt, QV_ERROR_OUT_OF_RANGE, name, value);
        } else {
            QV_LOG(6, "unexpected error %d (%s) from integer conversion", rc, qv_error_string(rc));
        }
        return -1;
    }
    case kFlag:
        QV_ASSERT(option->data.intptr != NULL);
        *option->data.intptr = 1;
        return 0;
    case kStringCallback: {
        QV_ASSERT(option->callback != NULL);
        if (value == nullptr) return missing_value(qvgetopt, name, 13);
        *used = true;
        int rc = option->callback(value, option->data.user);
        if (rc != 0) {
            report(qvgetopt, rc, name, value);
            return -1;
        }
        return 0;
    }
    default:
        QV_LOG(6, "unrecognized option type %d", option->kind);
        return -1;
    }
}

// "--name" or "--name=value" at argv[*index]; advances *index past what it consumed.
int parse_long(qv_getopt *qvgetopt, int argc, char **argv, int *index) noexcept {
    const char *arg = argv[*index];
    int next = *index + 1;
    bool used = false;
    const char *eq = strchr(arg, '=');
    if (eq != nullptr) {
        // The name is reported as written, dashes included, so it is copied
        // with them and looked up past them.
        qv::Owned<char> name(qv_strndup(arg, static_cast<size_t>(eq - arg)));
        if (!name) {
            QV_LOG(7, "not enough memory for long option name");
            return -1;
        }
        Option *option = find_long(qvgetopt, name.get() + 2);
        if (option == nullptr) {
            report(qvgetopt, QV_ERROR_NOT_FOUND, name.get(), nullptr);
            return -1;
        }
        if (apply(qvgetopt, option, name.get(), eq + 1, &used) != 0) return -1;
    } else {
        Option *option = find_long(qvgetopt, arg + 2);
        if (option == nullptr) {
            report(qvgetopt, QV_ERROR_NOT_FOUND, arg, nullptr);
            return -1;
        }
        const char *value = next < argc ? argv[next] : nullptr;
        if (apply(qvgetopt, option, arg, value, &used) != 0) return -1;
        if (used) ++next;
    }
    *index = next;
    return 0;
}

// A group "-abc": each option that takes a value takes the next unconsumed
// argument after the group.
int parse_short_group(qv_getopt *qvgetopt, int argc, char **argv, int *index) noexcept {
    const char *arg = argv[*index];
    int next = *index + 1;
    for (const char *c = arg + 1; *c != '\0'; ++c) {
        const char name[3] = {'-', *c, '\0'};
        Option *option = find_short(qvgetopt, *c);
        if (option == nullptr) {
            report(qvgetopt, QV_ERROR_NOT_FOUND, name, nullptr);
            return -1;
        }
        bool used = false;
        const char *value = next < argc ? argv[next] : nullptr;
        if (apply(qvgetopt, option, name, value, &used) != 0) return -1;
        if (used) ++next;
    }
    *index = next;
    return 0;
}

// Replaces an owned text with a copy of text (null clears it); on a failed
// copy the old text stays.
int replace_text(char **slot, const char *text, const char *what) noexcept {
    char *copy = nullptr;
    if (text != nullptr && (copy = qv_strdup(text)) == nullptr) {
        QV_LOG(7, "not enough memory for %s string", what);
        return -1;
    }
    qv_free(*slot);
    *slot = copy;
    return 0;
}

void pad(qv_file *out, int count) noexcept {
    if (count > 0) qv_file_write(out, kBlanks, static_cast<size_t>(count));
}

// The description column, starting at currentcolumn on the current line.
void write_description(qv_file *out, const char *description, int currentcolumn) noexcept {
    QV_ASSERT(description != NULL);
    QV_ASSERT(currentcolumn >= 0);
    if (currentcolumn > kDescriptionColumn - 1) {
        qv_file_write(out, "\n", 1);
        currentcolumn = 0;
    }
    pad(out, kDescriptionColumn - currentcolumn);
    const char *text = description;
    for (;;) {
        size_t scanned = 0;
        while (scanned < kDescriptionWidth && text[scanned] != '\0') ++scanned;
        bool last = text[scanned] == '\0';
        size_t piece = scanned;
        if (!last) {
            // Break before the last blank of the window; a word longer than
            // the window is cut at its width.
            for (size_t k = scanned; k > 0; --k) {
                if (text[k - 1] == ' ') {
                    piece = k - 1;
                    break;
                }
            }
        }
        if (piece > 0) qv_file_write(out, text, piece);
        qv_file_write(out, "\n", 1);
        if (last) return;
        text += piece;
        if (*text == ' ') ++text;
        pad(out, kDescriptionColumn);
    }
}

}  // namespace

extern "C" {

QV_API qv_getopt *qv_getopt_create(void) noexcept {
    qv_getopt *qvgetopt = qv::make_zeroed<qv_getopt>();
    if (qvgetopt == nullptr) {
        QV_LOG(7, "not enough memory for qvgetopt context");
        return nullptr;
    }
    qvgetopt->options = qv::make_zeroed<OptionList>();
    if (qvgetopt->options == nullptr) {
        QV_LOG(7, "unable to create qvgetopt option list");
        qv_free(qvgetopt);
        return nullptr;
    }
    qvgetopt->optind = 1;
    return qvgetopt;
}

QV_API void qv_getopt_destroy(qv_getopt *qvgetopt) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    Option *option = qvgetopt->options->head;
    while (option != nullptr) {
        Option *next = option->next;
        free_option(option);
        option = next;
    }
    qv_free(qvgetopt->options);
    qv_free(qvgetopt->synopsis);
    qv_free(qvgetopt->footer);
    qv_free(qvgetopt);
}

QV_API int qv_getopt_help(qv_getopt *qvgetopt, const char *longopt, char shortopt) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    return add_option(qvgetopt, kHelp, longopt, shortopt, nullptr, "Show help.", nullptr, nullptr);
}

QV_API int qv_getopt_flag_set(qv_getopt *qvgetopt, const char *longopt, char shortopt, int *intptr,
                              const char *description) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    QV_ASSERT(intptr != NULL);
    QV_ASSERT(description != NULL);
    return add_option(qvgetopt, kFlag, longopt, shortopt, nullptr, description, nullptr, intptr);
}

QV_API int qv_getopt_int(qv_getopt *qvgetopt, const char *longopt, char shortopt, int *intptr,
                         const char *optionname, const char *description) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    QV_ASSERT(intptr != NULL);
    QV_ASSERT(optionname != NULL);
    QV_ASSERT(description != NULL);
    return add_option(qvgetopt, kInt, longopt, shortopt, optionname, description, nullptr, intptr);
}

QV_API int qv_getopt_const_string(qv_getopt *qvgetopt, const char *longopt, char shortopt,
                                  const char **stringptr, const char *optionname,
                                  const char *description) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    QV_ASSERT(stringptr != NULL);
    QV_ASSERT(optionname != NULL);
    QV_ASSERT(description != NULL);
    return add_option(qvgetopt, kConstString, longopt, shortopt, optionname, description, nullptr,
                      static_cast<void *>(stringptr));
}

QV_API int qv_getopt_string_callback(qv_getopt *qvgetopt, const char *longopt, char shortopt,
                                     const char *optionname, const char *description,
                                     qv_getopt_string_fn callback, void *data) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    QV_ASSERT(optionname != NULL);
    QV_ASSERT(description != NULL);
    return add_option(qvgetopt, kStringCallback, longopt, shortopt, optionname, description, callback, data);
}

QV_API int qv_getopt_set_synopsis(qv_getopt *qvgetopt, const char *synopsis) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    return replace_text(&qvgetopt->synopsis, synopsis, "synopsis");
}

QV_API int qv_getopt_set_footer(qv_getopt *qvgetopt, const char *footer) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    return replace_text(&qvgetopt->footer, footer, "footer");
}

QV_API void qv_getopt_set_error_callback(qv_getopt *qvgetopt, qv_getopt_error_fn callback, void *user) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    qvgetopt->errorcallback = callback;
    qvgetopt->erroruser = user;
}

QV_API int qv_getopt_parse(qv_getopt *qvgetopt, int argc, char **argv) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    QV_ASSERT(argc >= 0);
    QV_ASSERT(argv != NULL);
    qvgetopt->helpshown = 0;
    if (argc < 2) {
        qvgetopt->optind = 1;
        return 0;
    }
    int i = 1;
    while (i < argc) {
        const char *arg = argv[i];
        if (arg[0] != '-') break;          // the first operand ends the options
        if (arg[1] == '\0') {              // a lone "-" is skipped
            ++i;
            continue;
        }
        if (arg[1] == '-' && arg[2] == '\0') {  // "--" ends the options
            ++i;
            break;
        }
        int rc = arg[1] == '-' ? parse_long(qvgetopt, argc, argv, &i)
                               : parse_short_group(qvgetopt, argc, argv, &i);
        if (rc != 0) {
            qvgetopt->optind = 0;
            return -1;
        }
    }
    qvgetopt->optind = i;
    return qvgetopt->helpshown ? 1 : 0;
}

QV_API int qv_getopt_optind(qv_getopt *qvgetopt) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    return qvgetopt->optind;
}

QV_API int qv_getopt_usage(qv_getopt *qvgetopt, qv_file *out) noexcept {
    QV_ASSERT(qvgetopt != NULL);
    QV_ASSERT(out != NULL);
    qv_file_fprintf(out, "%s\n", qvgetopt->synopsis != nullptr ? qvgetopt->synopsis : "usage: PROGRAM OPTIONS");
    qv_file_fprintf(out, "OPTIONS:\n");
    for (const Option *option = qvgetopt->options->head; option != nullptr; option = option->next) {
        const char *longopt = option->longopt;
        int currentcolumn;
        if (option->shortopt != 0) {
            currentcolumn = qv_file_fprintf(out, " -%c%s%s", option->shortopt, longopt != nullptr ? ", --" : "",
                                            longopt != nullptr ? longopt : "");
        } else {
            QV_ASSERT(longopt != NULL);
            currentcolumn = qv_file_fprintf(out, " --%s", longopt);
        }
        if (currentcolumn >= 0 && option->optionname != nullptr) {
            int n = qv_file_fprintf(out, "=%s", option->optionname);
            currentcolumn = n < 0 ? n : currentcolumn + n;
        }
        if (currentcolumn < 0) {
            QV_LOG(6, "unable to output usage");
            break;
        }
        write_description(out, option->description, currentcolumn);
    }
    if (qvgetopt->footer != nullptr) qv_file_fprintf(out, "%s", qvgetopt->footer);
    return 0;
}

QV_API int qv_getopt_usage_stdout(qv_getopt *qvgetopt) noexcept { return qv_getopt_usage(qvgetopt, stdout); }

QV_API int qv_getopt_usage_stderr(qv_getopt *qvgetopt) noexcept { return qv_getopt_usage(qvgetopt, stderr); }

}  // extern "C"
