/* bench_tool.c - the library-side counterparts of the navo tool's commands, and a runner that
   times a command and reads its peak memory.
     bare FILE            load without a callback (what `navo validate` does)
     save OUT RECORDS     the benchmark document built through the API, then dk_SaveNAVO
     exec CMD ARGS...     runs a command, prints its wall and CPU time and its peak memory */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "navo.h"

#define BENCH_FORM "TOBRCA"

static double now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

static int bare(const char *path)
{
    dk_Context *ctx = NULL;
    int32_t result;
    if (!dk_Init(&ctx))
        return 1;
    dk_UstawCallBack(NULL);
    result = dk_LoadNAVO(ctx, path);
    dk_Destroy(&ctx);
    return result == 1 ? 0 : 1;
}

static void fill(char *line, size_t capacity, const char *text)
{
    snprintf(line, capacity, "%-*s", (int)(capacity - 1), text);
}

/* The same document as bench_load's generator: TOBRCA, its repeating block with RECORDS records,
   every field "<record><field>" cut to its width. */
static int save(const char *path, long records, double *saveSeconds)
{
    dk_Context *ctx = NULL;
    const dk_dfDefinition *def;
    const dk_dfForm *form;
    dk_DocHeader *header = NULL;
    int32_t doc = -1, id = -1, i;
    double start;
    if (!dk_Init(&ctx) || !dk_dfLoadDefinition(ctx->definitions, ctx->dictionary, GetDefTXT_1_3()) ||
        !dk_InitDocuments(ctx, 10) || !dk_AddDocument(ctx, BENCH_FORM, &doc) || !dk_sdGetID(ctx->dictionary, BENCH_FORM, &id))
        return 1;
    def = &ctx->definitions->items[0];
    form = &def->forms[id];
    dk_SetDefaultNAVOProlog(ctx, "1.3");
    fill(ctx->header.line1, sizeof ctx->header.line1, "BENCH");
    fill(ctx->header.line2, sizeof ctx->header.line2, "20260101");
    fill(ctx->header.line3, sizeof ctx->header.line3, "");
    fill(ctx->header.line4, sizeof ctx->header.line4, "");
    fill(ctx->header.line5, sizeof ctx->header.line5, "");
    dk_GetDocHeader(ctx, BENCH_FORM, doc, &header);
    {
        char *lines[14] = {header->line1, header->line2, header->line3, header->line4, header->line5,
                           header->line6, header->line7, header->line8, header->line9, header->line10,
                           header->line11, header->line12, header->line13, header->line14};
        static const size_t caps[14] = {52, 9, 9, 9, 25, 9, 25, 25, 9, 25, 25, 2, 2, 33};
        for (i = 0; i < 14; i++)
            fill(lines[i], caps[i], i == 0 ? "DOC" : "");
    }
    for (i = 0; i < form->refCount; i++) {
        const dk_dfBlock *block = &def->blocks[form->refs[i].blockIndex];
        const char *tag = ctx->dictionary->strings[block->tagId];
        long count = form->refs[i].occurrence == -1 ? records : 1;
        long n;
        for (n = 0; n < count; n++) {
            int32_t f, added;
            if (n > 0 && !dk_AddBlock(ctx, BENCH_FORM, doc, tag, &added))
                return 1;
            for (f = 0; f < block->fieldCount; f++) {
                char value[64];
                snprintf(value, sizeof value, "%ld%d", n, (int)f);
                if (!dk_SetField(ctx, BENCH_FORM, doc, tag, (int32_t)n, ctx->dictionary->strings[block->fields[f].nameId],
                                 value))
                    return 1;
            }
        }
    }
    start = now();
    if (!dk_SaveNAVO(ctx, path, 1))
        return 1;
    *saveSeconds = now() - start;
    dk_Destroy(&ctx);
    return 0;
}

static int run(char **argv)
{
    struct rusage usage;
    int status = 0;
    double start = now();
    pid_t pid = fork();
    if (pid == 0) {
        if (freopen("/dev/null", "w", stdout) == NULL)
            _exit(127);
        execvp(argv[0], argv);
        _exit(127);
    }
    if (pid < 0 || waitpid(pid, &status, 0) < 0 || getrusage(RUSAGE_CHILDREN, &usage) != 0)
        return 1;
    /* wall-seconds cpu-seconds peak-KiB exit; CPU time is the steadier figure on a shared machine */
    printf("%.3f %.3f %ld %d\n", now() - start,
           (double)usage.ru_utime.tv_sec + (double)usage.ru_utime.tv_usec / 1e6 + (double)usage.ru_stime.tv_sec +
               (double)usage.ru_stime.tv_usec / 1e6,
           usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    return 0;
}

int main(int argc, char **argv)
{
    double start = now(), saveSeconds = 0;
    int status;
    if (argc >= 3 && strcmp(argv[1], "exec") == 0)
        return run(argv + 2);
    if (argc == 3 && strcmp(argv[1], "bare") == 0) {
        status = bare(argv[2]);
        printf("%.3f\n", now() - start);
        return status;
    }
    if (argc == 4 && strcmp(argv[1], "save") == 0) {
        status = save(argv[2], atol(argv[3]), &saveSeconds);
        /* total-seconds save-seconds */
        printf("%.3f %.3f\n", now() - start, saveSeconds);
        return status;
    }
    fprintf(stderr, "usage: %s bare FILE | save OUT RECORDS | exec CMD ARGS...\n", argv[0]);
    return 2;
}
