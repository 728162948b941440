/* bench_store.c - document store benchmark: one repeating block filled, every field set, then read back. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "navo.h"

/* A realistic wide record: 28 fields, 295 bytes, in one form with one single and one repeating block. */
static const char benchDefinition[] =
    "Wersja BENCH\n"
    "\n"
    "[BENCHF, BENCHF]\n"
    "Naglowek, 1, 1\n"
    "Pozycje, 1, -1\n"
    "\n"
    "<Naglowek, HDR>\n"
    "Numer, 10, t\n"
    "\n"
    "<Pozycje, POZ>\n"
    "Nazwisko, 20, t\n" "Imie, 30, t\n" "Pesel, 15, t\n" "DataUr, 8, t\n" "Nip, 11, t\n"
    "Ulica, 24, t\n" "NrDomu, 10, t\n" "NrLokalu, 10, t\n" "Poczta, 10, t\n" "Miejscowosc, 12, t\n"
    "Kod1, 5, t\n" "Kod2, 5, t\n" "Tytul, 3, t\n" "Podstawa, 14, t\n" "Skladka1, 9, t\n"
    "Skladka2, 9, t\n" "Okres, 6, t\n" "Znak, 2, t\n" "Flaga, 1, t\n" "Konto, 16, t\n"
    "Bank, 20, t\n" "Kwota1, 10, t\n" "Kwota2, 10, t\n" "Kwota3, 8, t\n" "Kwota4, 8, t\n"
    "Kwota5, 8, t\n" "Rodzaj, 4, t\n" "Uwagi, 7, t\n";

static const char *const fieldNames[] = {
    "Nazwisko", "Imie", "Pesel", "DataUr", "Nip", "Ulica", "NrDomu", "NrLokalu", "Poczta", "Miejscowosc",
    "Kod1", "Kod2", "Tytul", "Podstawa", "Skladka1", "Skladka2", "Okres", "Znak", "Flaga", "Konto",
    "Bank", "Kwota1", "Kwota2", "Kwota3", "Kwota4", "Kwota5", "Rodzaj", "Uwagi"};
#define FIELD_COUNT ((int)(sizeof fieldNames / sizeof fieldNames[0]))

static double secondsSince(const struct timespec *start)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)(now.tv_sec - start->tv_sec) + (double)(now.tv_nsec - start->tv_nsec) / 1e9;
}

static void fail(const char *what, int record)
{
    fprintf(stderr, "bench_store: %s failed at record %d\n", what, record);
    exit(1);
}

/* A cheap system call that nothing else makes: run_store_bench.sh cuts the strace log into the
   phases at these marks. */
static void phaseMark(void)
{
    (void)getppid();
}

/* The whole workload for one size, in this process; prints one line of figures. */
static void runStore(int records)
{
    dk_Context *ctx = NULL;
    struct timespec start;
    struct rusage usage;
    double fillSeconds, setSeconds, getSeconds;
    char value[64];
    char out[64];
    int32_t index;
    int record, field;
    if (!dk_Init(&ctx) || !dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, benchDefinition) ||
        !dk_InitDocuments(ctx, 10) || !dk_AddDocument(ctx, "BENCHF", &index))
        fail("setup", 0);

    phaseMark();
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (record = 1; record < records; record++) {
        if (!dk_AddBlock(ctx, "BENCHF", 0, "POZ", &index) || index != record)
            fail("dk_AddBlock", record);
    }
    fillSeconds = secondsSince(&start);
    phaseMark();

    clock_gettime(CLOCK_MONOTONIC, &start);
    for (record = 0; record < records; record++) {
        snprintf(value, sizeof value, "%d", record);
        for (field = 0; field < FIELD_COUNT; field++) {
            if (!dk_SetField(ctx, "BENCHF", 0, "POZ", record, fieldNames[field], value))
                fail("dk_SetField", record);
        }
    }
    setSeconds = secondsSince(&start);
    phaseMark();

    clock_gettime(CLOCK_MONOTONIC, &start);
    for (record = 0; record < records; record++) {
        size_t valueLength = (size_t)snprintf(value, sizeof value, "%d", record);
        for (field = 0; field < FIELD_COUNT; field++) {
            size_t length;
            if (!dk_GetField(ctx, "BENCHF", 0, "POZ", record, fieldNames[field], out, (int32_t)sizeof out))
                fail("dk_GetField", record);
            /* a narrow field holds only the first digits */
            length = strlen(out) < valueLength ? strlen(out) : valueLength;
            if (length == 0 || strncmp(out, value, length) != 0)
                fail("read-back comparison", record);
        }
    }
    getSeconds = secondsSince(&start);
    phaseMark();

    if (!dk_Destroy(&ctx))
        fail("dk_Destroy", 0);
    getrusage(RUSAGE_SELF, &usage);
    printf("records %d fields %d add %.3f s set %.3f s get %.3f s total %.3f s peak_rss_kib %ld\n", records,
           records * FIELD_COUNT, fillSeconds, setSeconds, getSeconds, fillSeconds + setSeconds + getSeconds,
           usage.ru_maxrss);
    fflush(stdout);
}

int main(int argc, char **argv)
{
    static const int defaultSizes[] = {1000, 100000};
    int i;
    if (argc > 2 && strcmp(argv[1], "--in-process") == 0) {
        /* One size in this very process: what run_store_bench.sh traces with strace. */
        runStore(atoi(argv[2]));
        return 0;
    }
    /* Each size in a child of its own, so that ru_maxrss is the peak of that size alone. */
    for (i = 0; i < (argc > 1 ? argc - 1 : 2); i++) {
        int records = argc > 1 ? atoi(argv[i + 1]) : defaultSizes[i];
        int status = 0;
        pid_t child = fork();
        if (child < 0)
            return 1;
        if (child == 0) {
            runStore(records);
            _exit(0);
        }
        if (waitpid(child, &status, 0) < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            return 1;
    }
    return 0;
}
