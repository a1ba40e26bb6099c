/*
 * qvsum: SHA-1 and SHA-256 checksums, line for line like coreutils'
 * sha1sum and sha256sum, built on qvlib's option parser, files and digests.
 *
 *   qvsum [--sha1|--sha256] [--check] FILE...
 *
 * Without --check it prints "<hex>  <name>" per file ("-" or no file reads
 * standard input). With --check each FILE is a list of such lines (or BSD
 * "SHA256 (name) = hex" lines); every listed file is hashed and reported as
 * "name: OK" or "name: FAILED", followed by coreutils' warnings on standard
 * error. The exit status is 0 when everything matched, else 1.
 *
 * As qvlib's parser does, options end at the first operand. The parser skips
 * a lone "-" among the options; qvsum takes such arguments back as standard
 * input, in their place before the other operands, since none of its options
 * takes a value.
 */
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "qvlib.h"

#define READ_CHUNK (128 * 1024)

typedef struct digest {
    int sha1; /* else SHA-256 */
    qv_sha1 *s1;
    qv_sha256 *s256;
    size_t bytes; /* 20 or 32 */
    const char *tag; /* "SHA1" or "SHA256" in BSD lines */
} digest;

static const char *progname = "qvsum";
static unsigned char chunk[READ_CHUNK];

static void digest_begin(digest *d) {
    if (d->sha1)
        qv_sha1_init(d->s1);
    else
        qv_sha256_init(d->s256);
}

static void digest_add(digest *d, const void *data, size_t len) {
    if (d->sha1)
        qv_sha1_update(d->s1, data, len);
    else
        qv_sha256_update(d->s256, data, len);
}

static void digest_end(digest *d, unsigned char *out) {
    if (d->sha1) {
        qv_sha1_finalize(d->s1);
        qv_sha1_digest(d->s1, out);
    } else {
        qv_sha256_finalize(d->s256);
        qv_sha256_digest(d->s256, out);
    }
}

/* Names are quoted in diagnostics the way coreutils does for the simple
 * cases: as they are when plain, else in single quotes. */
static void print_name_diag(const char *name) {
    const char *p;
    int plain = *name != '\0';
    for (p = name; *p && plain; ++p)
        plain = isalnum((unsigned char)*p) || strchr("_./-+,:@%^=", *p) != NULL;
    if (plain || strchr(name, '\'') != NULL)
        fprintf(stderr, "%s", name);
    else
        fprintf(stderr, "'%s'", name);
}

/* Starts a diagnostic. Standard output is flushed first, so that the two
 * streams interleave as coreutils' do when they share a file. */
static void diag_begin(void) {
    fflush(stdout);
    fprintf(stderr, "%s: ", progname);
}

static void report_errno(const char *name, int err) {
    diag_begin();
    print_name_diag(strcmp(name, "-") == 0 ? "standard input" : name);
    fprintf(stderr, ": %s\n", strerror(err));
}

/* Hashes one file ("-" is standard input) into out; 0, or the errno value. */
static int hash_file(digest *d, const char *name, unsigned char *out) {
    int is_stdin = strcmp(name, "-") == 0;
    qv_file *f = is_stdin ? qv_file_get_stdin() : qv_file_open_binary(name);
    size_t n;
    int err = 0;
    if (f == NULL) return errno ? errno : EIO;
    digest_begin(d);
    do {
        n = qv_file_read(f, chunk, sizeof chunk);
        if (n > 0) digest_add(d, chunk, n);
    } while (n == sizeof chunk);
    if (qv_file_ferror(f)) err = errno ? errno : EIO;
    if (is_stdin)
        clearerr(f);
    else
        qv_file_close(f);
    if (err == 0) digest_end(d, out);
    return err;
}

/* Writes name with '\\', '\n' (and in digest lines '\r') as escapes. */
static void print_escaped(const char *name, int escape_cr) {
    const char *p;
    for (p = name; *p; ++p) {
        if (*p == '\\')
            fputs("\\\\", stdout);
        else if (*p == '\n')
            fputs("\\n", stdout);
        else if (*p == '\r' && escape_cr)
            fputs("\\r", stdout);
        else
            putchar(*p);
    }
}

static int compute(digest *d, int nfiles, char **files) {
    static char *stdin_only[] = {"-"};
    unsigned char out[32];
    int i, ok = 1;
    size_t k;
    if (nfiles == 0) {
        nfiles = 1;
        files = stdin_only;
    }
    for (i = 0; i < nfiles; ++i) {
        const char *name = files[i];
        int err = hash_file(d, name, out);
        if (err != 0) {
            report_errno(name, err);
            ok = 0;
            continue;
        }
        if (strpbrk(name, "\\\n\r") != NULL) putchar('\\');
        for (k = 0; k < d->bytes; ++k) printf("%02x", out[k]);
        fputs("  ", stdout);
        print_escaped(name, 1);
        putchar('\n');
    }
    return ok;
}

/* In-place unescaping of a listed name; 0 if it holds an invalid escape. */
static int unescape(char *s) {
    char *w = s;
    for (; *s; ++s) {
        if (*s != '\\') {
            *w++ = *s;
            continue;
        }
        ++s;
        if (*s == '\\')
            *w++ = '\\';
        else if (*s == 'n')
            *w++ = '\n';
        else if (*s == 'r')
            *w++ = '\r';
        else
            return 0;
    }
    *w = '\0';
    return 1;
}

static int is_hex_run(const char *s, size_t n) {
    size_t i;
    for (i = 0; i < n; ++i)
        if (!isxdigit((unsigned char)s[i])) return 0;
    return 1;
}

/* Splits one checklist line into its hex digest and name. bsd_reversed
 * follows coreutils: -1 unknown, 0 after a standard "hex  name" line (single
 * space lines are then refused), 1 after a "hex name" line. */
static int split_line(digest *d, char *s, char **hex, char **name, int *bsd_reversed) {
    size_t hexlen = 2 * d->bytes, taglen = strlen(d->tag), len;
    int escaped = 0;
    while (isspace((unsigned char)*s)) ++s;
    if (*s == '\\') {
        escaped = 1;
        ++s;
    }
    len = strlen(s);
    if (strncmp(s, d->tag, taglen) == 0) {
        char *p = s + taglen, *close;
        if (*p == ' ') ++p;
        if (*p == '(') {
            ++p;
            close = strrchr(p, ')');
            if (close == NULL) return 0;
            *close = '\0';
            *name = p;
            p = close + 1;
            while (*p == ' ' || *p == '\t') ++p;
            if (*p != '=') return 0;
            ++p;
            while (*p == ' ' || *p == '\t') ++p;
            if (strlen(p) != hexlen || !is_hex_run(p, hexlen)) return 0;
            *hex = p;
            return !escaped || unescape(*name);
        }
    }
    if (len < hexlen + 2 || !is_hex_run(s, hexlen) || !isspace((unsigned char)s[hexlen])) return 0;
    s[hexlen] = '\0';
    *hex = s;
    s += hexlen + 1;
    if (strlen(s) == 1 || (*s != ' ' && *s != '*')) {
        if (*bsd_reversed == 0) return 0;
        *bsd_reversed = 1;
    } else if (*bsd_reversed != 1) {
        *bsd_reversed = 0;
        ++s;
    }
    *name = s;
    return !escaped || unescape(*name);
}

static int same_digest(const char *hex, const unsigned char *bin, size_t bytes) {
    static const char digits[] = "0123456789abcdef";
    size_t k;
    for (k = 0; k < bytes; ++k) {
        if (tolower((unsigned char)hex[2 * k]) != digits[bin[k] >> 4]) return 0;
        if (tolower((unsigned char)hex[2 * k + 1]) != digits[bin[k] & 15]) return 0;
    }
    return 1;
}

static void warn_count(unsigned long n, const char *one, const char *many) {
    if (n == 0) return;
    diag_begin();
    fprintf(stderr, "WARNING: %lu %s\n", n, n == 1 ? one : many);
}

/* Checks one list; 1 when every listed file matched. */
static int check_list(digest *d, const char *listname) {
    int is_stdin = strcmp(listname, "-") == 0;
    qv_file *f = is_stdin ? qv_file_get_stdin() : qv_file_open_binary(listname);
    unsigned long formatted = 0, misformatted = 0, unreadable = 0, mismatched = 0;
    int bsd_reversed = -1;
    char *line = NULL;
    size_t cap = 0;
    unsigned char out[32];
    if (f == NULL) {
        report_errno(listname, errno);
        return 0;
    }
    for (;;) {
        size_t len = 0;
        char *hex, *name;
        int err;
        /* Lines of any length: grow the buffer until the newline fits. */
        for (;;) {
            if (cap - len < 2) {
                size_t ncap = cap ? cap * 2 : 256;
                char *grown = (char *)qv_realloc(line, ncap);
                if (grown == NULL) {
                    fprintf(stderr, "%s: out of memory\n", progname);
                    exit(1);
                }
                line = grown;
                cap = ncap;
            }
            if (qv_file_fgets(line + len, (int)(cap - len > 65536 ? 65536 : cap - len), f) == NULL) break;
            len += strlen(line + len);
            if (len > 0 && line[len - 1] == '\n') break;
        }
        if (len == 0) break;
        if (line[len - 1] == '\n') line[--len] = '\0';
        if (line[0] == '#') continue;
        if (len > 0 && line[len - 1] == '\r') line[--len] = '\0';
        if (len == 0) continue;
        if (!split_line(d, line, &hex, &name, &bsd_reversed)) {
            ++misformatted;
            continue;
        }
        ++formatted;
        err = hash_file(d, name, out);
        if (err != 0) {
            report_errno(name, err);
            ++unreadable;
        }
        /* Listed names are escaped only when a newline would break the line. */
        if (strchr(name, '\n') != NULL) {
            putchar('\\');
            print_escaped(name, 1);
        } else {
            fputs(name, stdout);
        }
        if (err != 0) {
            fputs(": FAILED open or read\n", stdout);
            continue;
        }
        if (same_digest(hex, out, d->bytes)) {
            fputs(": OK\n", stdout);
        } else {
            fputs(": FAILED\n", stdout);
            ++mismatched;
        }
    }
    qv_free(line);
    if (!is_stdin) qv_file_close(f);
    if (formatted == 0) {
        diag_begin();
        print_name_diag(is_stdin ? "standard input" : listname);
        fprintf(stderr, ": no properly formatted checksum lines found\n");
        return 0;
    }
    warn_count(misformatted, "line is improperly formatted", "lines are improperly formatted");
    warn_count(unreadable, "listed file could not be read", "listed files could not be read");
    warn_count(mismatched, "computed checksum did NOT match", "computed checksums did NOT match");
    return mismatched == 0 && unreadable == 0;
}

static void on_error(int error, const char *option, const char *value, void *user) {
    (void)value;
    (void)user;
    diag_begin();
    if (error == QV_ERROR_NOT_FOUND)
        fprintf(stderr, "unrecognized option '%s'\n", option);
    else
        fprintf(stderr, "option '%s': %s\n", option, qv_error_string(error));
}

int main(int argc, char **argv) {
    int want_sha1 = 0, want_sha256 = 0, check = 0, ok = 1, rc, i, first, nops = 0;
    char **operands;
    digest d;
    qv_getopt *opts = qv_getopt_create();
    if (opts == NULL) return 1;
    if (qv_getopt_help(opts, "help", 'h') != 0 ||
        qv_getopt_flag_set(opts, "sha1", 0, &want_sha1, "Use SHA-1 (as sha1sum).") != 0 ||
        qv_getopt_flag_set(opts, "sha256", 0, &want_sha256, "Use SHA-256 (as sha256sum); the default.") != 0 ||
        qv_getopt_flag_set(opts, "check", 'c', &check,
                           "Read checksum lines from the FILEs and check them, reporting OK or FAILED "
                           "per listed file.") != 0 ||
        qv_getopt_set_synopsis(opts, "usage: qvsum [--sha1|--sha256] [--check] FILE...") != 0 ||
        qv_getopt_set_footer(opts, "With no FILE, or when FILE is -, read standard input.\n") != 0) {
        qv_getopt_destroy(opts);
        return 1;
    }
    qv_getopt_set_error_callback(opts, on_error, NULL);
    rc = qv_getopt_parse(opts, argc, argv);
    first = qv_getopt_optind(opts);
    if (rc == 0 && want_sha1 && want_sha256) {
        diag_begin();
        fprintf(stderr, "choose one of --sha1 and --sha256\n");
        rc = -1;
    }
    if (rc != 0) {
        if (rc < 0) fprintf(stderr, "Try '%s --help' for more information.\n", progname);
        qv_getopt_destroy(opts);
        return rc < 0 ? 1 : 0;
    }
    qv_getopt_destroy(opts);

    operands = (char **)qv_malloc(sizeof(char *) * (size_t)(argc + 1));
    if (operands == NULL) return 1;
    for (i = 1; i < first; ++i)
        if (strcmp(argv[i], "-") == 0) operands[nops++] = argv[i];
    for (i = first; i < argc; ++i) operands[nops++] = argv[i];

    memset(&d, 0, sizeof d);
    d.sha1 = want_sha1;
    d.bytes = d.sha1 ? 20 : 32;
    d.tag = d.sha1 ? "SHA1" : "SHA256";
    if (d.sha1)
        d.s1 = qv_sha1_create();
    else
        d.s256 = qv_sha256_create();
    if (d.s1 == NULL && d.s256 == NULL) return 1;

    if (!check) {
        ok = compute(&d, nops, operands);
    } else if (nops == 0) {
        ok = check_list(&d, "-");
    } else {
        for (i = 0; i < nops; ++i) ok &= check_list(&d, operands[i]);
    }
    qv_free(operands);
    if (d.s1 != NULL) qv_sha1_destroy(d.s1);
    if (d.s256 != NULL) qv_sha256_destroy(d.s256);
    qv_uninit();
    if (fflush(stdout) != 0) ok = 0;
    return ok ? 0 : 1;
}
