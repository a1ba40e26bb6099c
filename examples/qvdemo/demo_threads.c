#include <stdio.h>
#include <string.h>

#include "demo.h"

/* One request: the handler counts the vowels of a word in place. */
struct word_request {
    const char *word;
    int vowels;
    int worker;
};

/* Each worker gets its own context: here just its number. */
static void *make_worker_ctx(void *global, int *error_out) {
    static int numbers[3] = {1, 2, 3};
    int *next = (int *)global;
    *error_out = QV_ERROR_NONE;
    return &numbers[(*next)++ % 3];
}

static int count_vowels(void *global, void *thread_ctx, void *request) {
    struct word_request *r = (struct word_request *)request;
    const char *p;
    (void)global;
    r->vowels = 0;
    for (p = r->word; *p != '\0'; ++p)
        if (strchr("aeiou", *p) != NULL) r->vowels++;
    r->worker = *(int *)thread_ctx;
    return 0;
}

void demo_threads(void) {
    struct word_request requests[] = {{"concurrency", 0, 0}, {"queue", 0, 0},
                                      {"deadline", 0, 0},    {"stopwatch", 0, 0},
                                      {"pool", 0, 0}};
    const int n = (int)(sizeof requests / sizeof requests[0]);
    int next_ctx = 0, err = 0, i;
    long s = 0, us = 0;
    qv_threadpool_params *params;
    qv_threadpool *pool;
    qv_timer *timer;
    qv_timeout *deadline;

    demo_heading("thread pool");
    timer = qv_timer_create();
    params = qv_threadpool_params_create_defaults();
    qv_threadpool_params_set_num_threads(params, 3);
    qv_threadpool_params_set_global_context(params, &next_ctx);
    qv_threadpool_params_set_thread_ctx_create(params, make_worker_ctx);
    qv_threadpool_params_set_request_handler(params, count_vowels);
    pool = qv_threadpool_create(params, &err);
    qv_threadpool_params_destroy(params);
    if (pool == NULL) {
        printf("no pool: %s\n", qv_error_string(err));
        qv_timer_destroy(timer);
        return;
    }
    for (i = 0; i < n; ++i) qv_threadpool_submit_request(pool, &requests[i]);
    /* Results arrive in completion order; count them, then stop. */
    for (i = 0; i < n; ++i) {
        struct word_request *r = (struct word_request *)qv_threadpool_get_result(pool, &err);
        printf("  %-12s %d vowels (worker %d)\n", r->word, r->vowels, r->worker);
    }
    qv_threadpool_stop(pool);
    printf("submit after stop: %s\n", qv_error_string(qv_threadpool_submit_request(pool, &requests[0])));
    qv_threadpool_destroy(pool);

    demo_heading("stopwatch and deadline");
    deadline = qv_timeout_create();
    qv_timeout_set(deadline, 0, 50000);
    qv_sleep(0, 20000);
    qv_timer_split(timer);
    qv_timer_gettotal(timer, 0, &s, &us, NULL);
    printf("pool and a 20 ms sleep took %ld.%03ld s\n", s, us / 1000);
    printf("50 ms deadline expired after 20 ms: %s\n", qv_timeout_check(deadline, NULL, NULL) == 1 ? "yes" : "no");
    qv_sleep(0, 40000);
    printf("50 ms deadline expired after 60 ms: %s\n", qv_timeout_check(deadline, &s, &us) == 1 ? "yes" : "no");
    qv_timeout_destroy(deadline);
    qv_timer_destroy(timer);
}
