/* navo_front.h - the C interface of libnavofront, the one core under the navo tool, navo.hpp, the
   Python package and the browser page.

   libnavofront is the library of navo.h with the front ends' core built on it: the forms as data,
   the two code pages, the messages, name matching, the place of a fault, the writer's refusals,
   content checks, the export formats and saving a file whole. Its own names all begin with
   navo_; it exports none of navo.h's, and a process may hold both libraries (they share nothing).

   Conventions
   - Text. Every `const char *` handed in or out is UTF-8, NUL-terminated, unless a parameter says
     `raw`. Values of a file are converted from its code page (ISO 8859-2, the format's own, or
     CP1250) through one table per code page; a byte the code page leaves undefined stands for the
     C1 code point of its own value (U+0080 + n), so that every byte survives a conversion and its
     way back. Text handed in must be UTF-8: overlong forms, surrogates, code points above
     U+10FFFF and cut sequences are refused (NAVO_NOT_UTF8).
   - Names. A form, block tag or field name matches the definition's own spelling, or, when no
     name is spelt exactly so, the one name that equals it with the ASCII letters a-z folded to
     A-Z. Other letters match only exactly. Results always give the definition's own spelling.
   - Numbers for people. Documents count from 1 in the order of their file (or of adding, for a
     writer); records of a block, notes and lines count from 0, as the library indexes them.
   - Results. A function returning int32_t gives NAVO_OK (0) or a code of navo_code. A function
     that writes text into the caller's `out` of `size` bytes returns the text's full length in
     bytes without its NUL, as snprintf does, and writes at most size - 1 bytes and a NUL (when
     size > 0): a result of size or more means the text was cut. It returns -code on failure.
     Several texts in one buffer each end with a NUL of their own.
   - Failure. Nothing here aborts or throws: a failed allocation is NAVO_OUT_OF_MEMORY.
   - Lifetimes. Objects made by a navo_..._new, _open or _load function are released by the
     matching _free or _close. A navo_file or navo_document handed to a callback is good only until
     that callback returns. navo_schema records are made once per process and never released.

   Threads
   - One load at a time in the process: navo_load, navo_convert and navo_document_open take a
     process-wide lock for the whole load (other threads wait); a callback that starts a load on
     the thread of the running one gets NAVO_LOAD_IN_PROGRESS. Within a load the callbacks run on
     the loading thread, one after the other. The views they get may be read from another thread
     while the callback waits for it (the Python package does so).
   - navo_progress may be called from any thread at any time.
   - Everything else works on the objects it is given: writers, rules and kept documents may be
     used on separate threads at once, each object by one thread at a time. Schemas, messages,
     code pages and places are read-only and may be shared freely. */
#ifndef NAVO_FRONT_H
#define NAVO_FRONT_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) || defined(__CYGWIN__)
#  if defined(NAVO_FRONT_STATIC)
#    define NAVO_FRONT_API
#  elif defined(NAVO_FRONT_BUILDING)
#    define NAVO_FRONT_API __declspec(dllexport)
#  else
#    define NAVO_FRONT_API __declspec(dllimport)
#  endif
#  define NAVO_FRONT_CALL __cdecl
#else
#  if defined(NAVO_FRONT_BUILDING) && defined(__GNUC__)
#    define NAVO_FRONT_API __attribute__((visibility("default")))
#  else
#    define NAVO_FRONT_API
#  endif
#  define NAVO_FRONT_CALL
#endif

#if defined(__cplusplus)
#  define NAVO_FRONT_NOEXCEPT noexcept
extern "C" {
#else
#  define NAVO_FRONT_NOEXCEPT
#endif

/* ---- codes and messages ------------------------------------------------------------------- */

enum navo_code {
    NAVO_OK = 0,
    /* 1-10: the library's load codes, as dk_GetNAVOError gives them */
    NAVO_NOT_NAVO = 1,
    NAVO_OPEN_FAILED = 2,
    NAVO_UNEXPECTED_END = 3,
    NAVO_UNEXPECTED_ENTRY = 4,
    NAVO_BAD_DOCUMENT = 5,
    NAVO_UNEXPECTED_BLOCK = 6,
    NAVO_BAD_BLOCK_SIZE = 7,
    NAVO_DOCUMENT_NOT_CREATED = 8,
    NAVO_OUT_OF_MEMORY = 9,
    NAVO_CANCELLED = 10,
    /* 100 on: the core's own */
    NAVO_INVALID_ARGUMENT = 100,  /* a null object or text, a flag or number out of its range */
    NAVO_LOAD_IN_PROGRESS = 101,  /* a callback tried to start a load */
    NAVO_UNKNOWN_FORM = 102,
    NAVO_UNKNOWN_BLOCK = 103,
    NAVO_UNKNOWN_FIELD = 104,
    NAVO_BAD_INDEX = 105,         /* no document, record, line or note at that number */
    NAVO_NOT_REPEATING = 106,     /* a record asked of a single block */
    NAVO_TOO_WIDE = 107,          /* a value wider than its field, line or note text */
    NAVO_BAD_CHARACTER = 108,     /* CR, LF, TAB, NUL, '<' or the byte 0x1A, which a NAVO text cannot carry */
    NAVO_STORE_FAILED = 109,      /* the document store refused (spool file or memory) */
    NAVO_SAVE_FAILED = 110,       /* the file could not be written whole */
    NAVO_NOT_ENCODABLE = 111,     /* a character the code page does not have */
    NAVO_NOT_UTF8 = 112,
    NAVO_UNKNOWN_VERSION = 113,   /* a definition version other than 1.2 and 1.3 */
    NAVO_CONTENT_REFUSED = 114,   /* a value fails its content rule (a writer with NAVO_CHECK) */
    NAVO_BAD_RULES = 115,         /* a rules file that breaks its grammar */
    NAVO_READ_FAILED = 116        /* an input other than a NAVO file could not be read */
};

enum navo_language { NAVO_ENGLISH = 0, NAVO_POLISH = 1 };

/* The message of a code: English from the one table of every front end; Polish for the load codes
   1-10 (the library's catalogue, as UTF-8), English for the others. "unknown code" otherwise. */
NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_message(int32_t code, int32_t language) NAVO_FRONT_NOEXCEPT;

/* The version of this build, "MAJOR.MINOR.PATCH", the one the packages and every front end give. */
NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_version(void) NAVO_FRONT_NOEXCEPT;

/* ---- code pages --------------------------------------------------------------------------- */

enum navo_encoding { NAVO_ISO8859_2 = 0, NAVO_CP1250 = 1 };

/* The encoding a name gives ("iso8859-2", "iso-8859-2", "latin2", "cp1250", "windows-1250", any
   ASCII case), or -1. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_encoding_named(const char *name) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_encoding_name(int32_t encoding) NAVO_FRONT_NOEXCEPT;

/* `length` raw bytes of `encoding` as UTF-8 into `out`. */
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_to_utf8(int32_t encoding, const char *raw, size_t length, char *out,
                                                   size_t size) NAVO_FRONT_NOEXCEPT;

/* `length` bytes of UTF-8 as raw bytes of `encoding` into `out` (no NUL is added to the count).
   -NAVO_NOT_UTF8 or -NAVO_NOT_ENCODABLE with *at (when given) the byte offset of the offending
   character in `text`; with `substitute` a character the code page lacks becomes '?' instead. */
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_from_utf8(int32_t encoding, const char *text, size_t length,
                                                     int32_t substitute, char *out, size_t size,
                                                     size_t *at) NAVO_FRONT_NOEXCEPT;

/* ---- the forms as data -------------------------------------------------------------------- */

typedef struct navo_field_def {
    const char *name;
    const char *type;     /* the third column of its line in the definition text; "" without one */
    int32_t offset;       /* in the record */
    int32_t width;
} navo_field_def;

typedef struct navo_block_def {
    const char *tag;      /* what files and hosts name it by, e.g. "DIPL" */
    const char *name;     /* its name in the definition text, e.g. "DaneIdPlSklaBlf" */
    int32_t repeating;    /* referenced with occurrence mark -1: any number of records, at least one */
    int32_t record_length;
    int32_t field_count;
    const navo_field_def *fields;
} navo_block_def;

typedef struct navo_form_def {
    const char *name;
    int32_t block_count;
    const navo_block_def *blocks;  /* in the order of the form */
} navo_form_def;

typedef struct navo_schema {
    const char *version;  /* "1.3", "1.2"; "" for a text of another name */
    const char *name;     /* the definition's name, from its first line */
    int32_t form_count;
    const navo_form_def *forms;  /* in definition order */
} navo_schema;

/* The embedded definition of version "1.2" or "1.3", made once and shared; NULL for another
   version or when memory runs out. */
NAVO_FRONT_API const navo_schema *NAVO_FRONT_CALL navo_schema_of(const char *version) NAVO_FRONT_NOEXCEPT;

/* A definition text of the host's own (CP1250, the grammar of the embedded ones), read by the
   library's definition loader. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_schema_parse(const char *raw, navo_schema **out) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API void NAVO_FRONT_CALL navo_schema_free(navo_schema *schema) NAVO_FRONT_NOEXCEPT;

/* Lookups by name (see Names above); NULL or -1 when there is none. */
NAVO_FRONT_API const navo_form_def *NAVO_FRONT_CALL navo_schema_form(const navo_schema *schema,
                                                                    const char *form) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_form_block(const navo_form_def *form, const char *tag) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_block_field(const navo_block_def *block,
                                                       const char *name) NAVO_FRONT_NOEXCEPT;

/* The envelope's elements and the width of their lines, from the format's own tables. */
enum navo_element { NAVO_FILE_HEADER = 0, NAVO_DOCUMENT_HEADER = 1, NAVO_ERROR_NOTE = 2, NAVO_OCR_NOTE = 3 };
/* Lines of an element (5, 14, 4, 6), or -1. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_element_lines(int32_t element) NAVO_FRONT_NOEXCEPT;
/* Width of line `line` (from 0) of an element, or -1. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_element_width(int32_t element, int32_t line) NAVO_FRONT_NOEXCEPT;
/* The letters of an OCR note's kind 0-3 as its tag carries them ("a", "z", "l", "l2"), or "". */
NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_ocr_kind_letters(int32_t kind) NAVO_FRONT_NOEXCEPT;

/* ---- places ------------------------------------------------------------------------------- */

enum navo_area {
    NAVO_AREA_NONE = 0,
    NAVO_AREA_PROLOG = 1,
    NAVO_AREA_FILE_HEADER = 2,
    NAVO_AREA_SECTION = 3,          /* a section's tags, and the file between sections */
    NAVO_AREA_DOCUMENT_HEADER = 4,
    NAVO_AREA_BODY = 5,
    NAVO_AREA_NOTES = 6,            /* a document's footer with its notes */
    NAVO_AREA_FOOTER = 7            /* the file's footer with its notes */
};

/* "prolog", "file header", "section", "document header", "body", "notes", "footer"; "" for none. */
NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_area_name(int32_t area) NAVO_FRONT_NOEXCEPT;

/* Where something is in a file or a writer's documents. What is not known is 0, -1 or "". */
typedef struct navo_place {
    int32_t area;            /* navo_area */
    int32_t document;        /* from 1; 0 outside documents */
    int32_t record;          /* of the block, of a note or of a line, from 0; -1 when none */
    int32_t expected;        /* length of the element's text the format wants; -1 when no length is at fault */
    int32_t found;           /* ... and the length it has */
    int32_t field_expected;  /* the same for the one line of `field` that is at fault; -1 when unknown */
    int32_t field_found;
    int32_t line;            /* line of the file, from 1; 0 when none */
    int64_t offset;          /* bytes of the file before the place; -1 when none */
    char form[64];
    char block[64];          /* a block's tag; "BLAD" or "OCR" for a note */
    char field[64];          /* a field's name; "line3" for a header's line, "text2" for a note's */
} navo_place;

/* The place in words, the same in every front end, without line and offset: "document 3
   (TOBZBA), body, block DIPL record 0, field Nip; expected 171 characters, found 170 (Nip: 10,
   found 9)". */
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_place_describe(const navo_place *place, char *out,
                                                          size_t size) NAVO_FRONT_NOEXCEPT;

/* ---- reading ------------------------------------------------------------------------------ */

/* Flags of the calls that give values. */
enum navo_value_flags {
    NAVO_KEEP_PADDING = 1,  /* keep a value's trailing blanks (else they are trimmed) */
    NAVO_RAW = 2            /* the bytes as the file holds them, not converted */
};

typedef struct navo_file navo_file;          /* the file being read: prolog, header, notes */
typedef struct navo_document navo_document;  /* one document of a file */

/* "1.3" or "1.2", as the file's prolog chose its definition. */
NAVO_FRONT_API const char *NAVO_FRONT_CALL navo_file_version(const navo_file *file) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API const navo_schema *NAVO_FRONT_CALL navo_file_schema(const navo_file *file) NAVO_FRONT_NOEXCEPT;
/* The 3 prolog lines, each ended by a NUL. */
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_file_prolog(const navo_file *file, int32_t flags, char *out,
                                                       size_t size) NAVO_FRONT_NOEXCEPT;
/* The 5 lines of the file header, each ended by a NUL. */
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_file_header(const navo_file *file, int32_t flags, char *out,
                                                       size_t size) NAVO_FRONT_NOEXCEPT;
/* The file's error notes: their number (all of them once the `end` callback runs) and the 4 texts
   of note `note`, each ended by a NUL. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_file_notes(const navo_file *file) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_file_note(const navo_file *file, int32_t note, int32_t flags, char *out,
                                                     size_t size) NAVO_FRONT_NOEXCEPT;

NAVO_FRONT_API const navo_file *NAVO_FRONT_CALL navo_document_file(const navo_document *doc) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API const navo_form_def *NAVO_FRONT_CALL navo_document_form(const navo_document *doc) NAVO_FRONT_NOEXCEPT;
/* From 1, in the order of the file. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_document_number(const navo_document *doc) NAVO_FRONT_NOEXCEPT;
/* The 14 header lines, each ended by a NUL. */
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_document_header(const navo_document *doc, int32_t flags, char *out,
                                                           size_t size) NAVO_FRONT_NOEXCEPT;
/* Records of the block at `block` (its position in the form): 1 for a single block; -code. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_document_records(const navo_document *doc,
                                                            int32_t block) NAVO_FRONT_NOEXCEPT;
/* Every field of one record, in the block's order, each ended by a NUL. */
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_document_record(const navo_document *doc, int32_t block, int32_t record,
                                                           int32_t flags, char *out, size_t size) NAVO_FRONT_NOEXCEPT;
/* One field, by its position in the block. */
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_document_value(const navo_document *doc, int32_t block, int32_t record,
                                                          int32_t field, int32_t flags, char *out,
                                                          size_t size) NAVO_FRONT_NOEXCEPT;
/* The document's notes of one kind (NAVO_ERROR_NOTE or NAVO_OCR_NOTE): how many, and the texts of
   note `note` (4 or 6), each ended by a NUL; `kind` (when given) receives an OCR note's kind 0-3. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_document_notes(const navo_document *doc,
                                                          int32_t element) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int64_t NAVO_FRONT_CALL navo_document_note(const navo_document *doc, int32_t element, int32_t note,
                                                         int32_t flags, char *out, size_t size,
                                                         int32_t *kind) NAVO_FRONT_NOEXCEPT;

/* A fault of a load: what the loader raised and where it stood, as it failed. */
typedef struct navo_fault {
    int32_t code;       /* as dk_GetNAVOError gives it after such a load: 1-5 or 9 (5 for any fault in a section) */
    int32_t cause;      /* the code the loader raised first: inside a section 3, 4, 6, 7, 8 or 9; else code */
    navo_place place;
    char detail[240];   /* an English sentence that names no value of the file */
} navo_fault;

/* A value that fails its content rule (see Content checks). */
enum navo_finding_kind {
    NAVO_FINDING_VALUE = 0,   /* one field's value against its type's rule */
    NAVO_FINDING_CROSS = 1    /* two fields of a record that disagree (a PESEL and the birth date beside it) */
};
typedef struct navo_finding {
    int32_t kind;
    navo_place place;   /* document, form, block, record, field */
    char type[64];      /* the field's type name in the definition */
    char rule[32];      /* the check that refused it: "pesel", "nip", "regon", "date", "digits", "pattern", ... */
    char problem[200];  /* English, naming no value */
    char value[256];    /* the value, trailing blanks trimmed; front ends show it only when asked */
} navo_finding;

typedef struct navo_rules navo_rules;

typedef struct navo_load_options {
    int32_t encoding;          /* of the values handed out: NAVO_ISO8859_2 (0) or NAVO_CP1250 */
    int32_t keep_going;        /* after a faulty section, go on with the next one; each fault is reported */
    int32_t checks;            /* run the content checks on every field; findings go to `finding` */
    const navo_rules *rules;   /* the rules for the checks; NULL: the built-in ones */
    const char *find;          /* a value to look for in every field (compared after trimming); NULL: none */
} navo_load_options;

/* Callbacks of a load; any may be NULL. A result other than 0 stops the load (outcome
   NAVO_STOPPED): after `document` the document stays, for navo_document_open. */
typedef struct navo_load_callbacks {
    void *user;
    /* Once, when the file header has been read. */
    int32_t(NAVO_FRONT_CALL *file)(void *user, const navo_file *file);
    /* Each document, whole. */
    int32_t(NAVO_FRONT_CALL *document)(void *user, const navo_document *doc);
    /* Each fault; more than one only with keep_going. */
    int32_t(NAVO_FRONT_CALL *fault)(void *user, const navo_fault *fault);
    /* Each finding of the checks, before its document's `document` call. */
    int32_t(NAVO_FRONT_CALL *finding)(void *user, const navo_finding *finding);
    /* Each field holding `find`: document, form, block, record and field. */
    int32_t(NAVO_FRONT_CALL *found)(void *user, const navo_place *place);
    /* Once, after the file's footer: the file's notes are all there. */
    int32_t(NAVO_FRONT_CALL *end)(void *user, const navo_file *file);
    /* For a progress bar: the line the reader stands on (from 1) and the file's line count, as
       navo_progress gives them, each time the reader has passed another hundredth of the file's
       lines (line * 100 / lines is higher than at the call before). The reader looks at its line
       after the file header, after each block record and after each document, so a hundredth it
       crosses within one element is told once, with the line it reached. Appended last: a host
       that builds this struct zero-initialised gets no calls. */
    int32_t(NAVO_FRONT_CALL *progress)(void *user, int32_t line, int32_t lines);
} navo_load_callbacks;

enum navo_outcome { NAVO_FAILED = 0, NAVO_DONE = 1, NAVO_STOPPED = 2 };

typedef struct navo_load_result {
    int32_t outcome;    /* navo_outcome, as dk_LoadNAVO's result */
    int32_t code;       /* 0 done, 10 stopped, else the first fault's code */
    int32_t line;       /* the line the reader stood on at the end */
    int32_t lines;      /* the file's line count, as the library counts it */
    int32_t documents;  /* documents read whole */
    int32_t faults;
    int32_t findings;
    navo_fault fault;   /* the first fault, when faults > 0 */
} navo_load_result;

/* Reads the file at `path` and hands its parts to the callbacks. Gives result->code. A file that
   cannot be opened is code 2, with the reason in fault.detail ("no such file", "is a directory",
   ...). `options` may be NULL (ISO 8859-2, first fault final, no checks). */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_load(const char *path, const navo_load_options *options,
                                                const navo_load_callbacks *callbacks,
                                                navo_load_result *result) NAVO_FRONT_NOEXCEPT;

/* The line the running load stands on and the file's line count, or 0 and 0: for a progress
   bar, from any thread. */
NAVO_FRONT_API void NAVO_FRONT_CALL navo_progress(int32_t *line, int32_t *lines) NAVO_FRONT_NOEXCEPT;

/* Reads the file up to its document `number` (from 1) and keeps that document, for access at
   leisure; the callbacks see the documents before it as navo_load would. NAVO_BAD_INDEX when the
   file has fewer documents. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_document_open(const char *path, const navo_load_options *options,
                                                         int32_t number, const navo_load_callbacks *callbacks,
                                                         navo_document **out,
                                                         navo_load_result *result) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API void NAVO_FRONT_CALL navo_document_close(navo_document *doc) NAVO_FRONT_NOEXCEPT;

/* ---- export ------------------------------------------------------------------------------- */

enum navo_format {
    NAVO_JSONL = 0,       /* one object a line: the file, each document, the footer */
    NAVO_JSON = 1,        /* the same objects in one array */
    NAVO_CSV = 2,         /* one table: document,form,block,record,field,value */
    NAVO_CSV_BLOCKS = 3   /* one table per block of each form ("TOBZBA.DIPL") and one of headers ("headers") */
};

/* Takes the output: `table` is NULL for the one output of a format, else the table's name. A
   result other than 0 stops the conversion (NAVO_SAVE_FAILED). */
typedef int32_t(NAVO_FRONT_CALL *navo_write_fn)(void *user, const char *table, const char *bytes, size_t size);

/* Converts the file at `path` to `format`, document by document, through `write`. `flags`:
   NAVO_KEEP_PADDING. The callbacks (NULL, or fault, finding, found and progress) see the load as
   navo_load. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_convert(const char *path, const navo_load_options *options,
                                                   int32_t format, int32_t flags, navo_write_fn write,
                                                   void *write_user, const navo_load_callbacks *callbacks,
                                                   navo_load_result *result) NAVO_FRONT_NOEXCEPT;

/* ---- writing ------------------------------------------------------------------------------ */

/* Why a writer refused a call: the code, the place (area, document, form, block, record, field;
   expected and found for a length) and an English reason naming no value. */
typedef struct navo_refusal {
    int32_t code;
    navo_place place;
    char reason[240];
} navo_refusal;

enum navo_writer_flags {
    NAVO_TRUNCATE = 1,   /* cut values too wide, write '?' for characters the code page lacks */
    NAVO_CHECK = 2       /* refuse values that fail their content rule */
};

typedef struct navo_writer navo_writer;

/* A writer of documents of definition `version` in `encoding`: the prolog is the version's, the
   headers start blank at their full widths. NULL for an unknown version or no memory. */
NAVO_FRONT_API navo_writer *NAVO_FRONT_CALL navo_writer_new(const char *version, int32_t encoding,
                                                           int32_t flags) NAVO_FRONT_NOEXCEPT;
/* Releases the writer with its documents and spool files; a begun file is removed. */
NAVO_FRONT_API void NAVO_FRONT_CALL navo_writer_free(navo_writer *writer) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API const navo_schema *NAVO_FRONT_CALL navo_writer_schema(const navo_writer *writer) NAVO_FRONT_NOEXCEPT;
/* The rules of NAVO_CHECK; NULL: the built-in ones. The rules must outlive the writer. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_rules(navo_writer *writer,
                                                        const navo_rules *rules) NAVO_FRONT_NOEXCEPT;

/* Every call below checks all it is given before it changes anything: a refused call changes
   nothing and fills `why` (when given). */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_file_header(navo_writer *writer, int32_t line, const char *text,
                                                              navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_file_note(navo_writer *writer, const char *const *texts,
                                                            int32_t count, navo_refusal *why) NAVO_FRONT_NOEXCEPT;
/* Adds a document of `form`; *document receives its number (from 1, in the order of adding). */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_add_document(navo_writer *writer, const char *form,
                                                               int32_t *document,
                                                               navo_refusal *why) NAVO_FRONT_NOEXCEPT;
/* Removes a document with its spool files (a front end's add that failed part-way). The numbers of
   the last documents added, when removed so, are given again, so that numbers stay the documents'
   places in the saved file. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_remove_document(navo_writer *writer,
                                                                  int32_t document) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_header(navo_writer *writer, int32_t document, int32_t line,
                                                         const char *text, navo_refusal *why) NAVO_FRONT_NOEXCEPT;
/* Appends a record to a repeating block (a new document has one); *record receives its index. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_add_record(navo_writer *writer, int32_t document,
                                                             const char *block, int32_t *record,
                                                             navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_set(navo_writer *writer, int32_t document, const char *block,
                                                      int32_t record, const char *field, const char *text,
                                                      navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_error_note(navo_writer *writer, int32_t document,
                                                             const char *const *texts, int32_t count,
                                                             navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_ocr_note(navo_writer *writer, int32_t document, int32_t kind,
                                                           const char *const *texts, int32_t count,
                                                           navo_refusal *why) NAVO_FRONT_NOEXCEPT;

/* Saving a whole file: it is written to a new file beside `path`, every write, the last flush and
   the close checked, synced to disk, then renamed over `path` with the permissions the umask
   gives (or those of the file it replaces). On any failure nothing is left at `path` but the file
   that stood there before, whole; the reason is in `why`. The documents stay in the writer. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_save(navo_writer *writer, const char *path,
                                                       navo_refusal *why) NAVO_FRONT_NOEXCEPT;

/* Saving a file document by document, for inputs too large to hold: begin writes the prolog and
   the file header to the new file beside `path`; write_document writes one document and removes
   it; finish writes the file's notes and footer and puts the file in place as save does. A writer
   freed before finish removes its new file. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_begin(navo_writer *writer, const char *path,
                                                        navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_write_document(navo_writer *writer, int32_t document,
                                                                 navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_writer_finish(navo_writer *writer, navo_refusal *why) NAVO_FRONT_NOEXCEPT;

/* The same safe way for a front end's own output (the tool's conversions): a new file beside
   `path` that commit syncs and renames into place, and that free without commit removes. */
typedef struct navo_output navo_output;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_output_open(const char *path, navo_output **out,
                                                       navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_output_write(navo_output *output, const char *bytes, size_t size,
                                                        navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_output_commit(navo_output *output, navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API void NAVO_FRONT_CALL navo_output_free(navo_output *output) NAVO_FRONT_NOEXCEPT;

/* ---- content checks ----------------------------------------------------------------------- */

/* Rules of one's own over the built-in ones, from a JSON text (docs/content-checks.md). A text
   that breaks the grammar is NAVO_BAD_RULES with its line in why->place.line and the reason in
   why->reason. */
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_rules_load(const char *path, navo_rules **out,
                                                      navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API int32_t NAVO_FRONT_CALL navo_rules_parse(const char *json, size_t length, navo_rules **out,
                                                       navo_refusal *why) NAVO_FRONT_NOEXCEPT;
NAVO_FRONT_API void NAVO_FRONT_CALL navo_rules_free(navo_rules *rules) NAVO_FRONT_NOEXCEPT;

#if defined(__cplusplus)
}
#endif

#endif /* NAVO_FRONT_H */
