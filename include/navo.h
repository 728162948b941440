/* navo.h - the one public header of libnavo: records, functions and variables a host uses. */

/* What a host relies on:

   1. Results. 1 is success and 0 failure; dk_LoadNAVO also gives 2 for a load its host stopped.
      The calls that give a value instead (an ID, a character, a comparison, a code, a pointer)
      say so in their group below.
   2. Out-parameters get their failure value before anything else is tested: -1 for an index or
      a count, null for a pointer, an empty text for a field. The groups below name the few
      calls that leave one as it was.
   3. Texts are NUL-terminated 8-bit bytes, never converted: definitions and messages are CP1250,
      a NAVO file declares ISO 8859-2. Names match with ASCII letters in either case. A field's
      text always has the field's full width, filled with blanks; a longer value is cut, which is
      no failure.
   4. Ownership. What an Init call makes, its Destroy call releases. A context owns its
      dictionary, definitions, envelope, document tables and spool files; the records the
      getters point into stay the library's. Memory passes to a host in two places only: the
      packed results of dk_GetNAVODocument and dk_GetNAVOBlock, and the text of
      dk_LoadStringtoTerminator, each released with dk_Free. A stream of dk_OpenFileforSave is
      closed with dk_CloseFile; the streams a host hands in stay the host's.
   5. Failures are told by the result alone, with one exception: a load also leaves a code
      (dk_GetNAVOError, worded by dk_GetNAVOErrorMessage) and the line it reached (dk_GetNAVOLine).

   Threads. The library starts none and takes no lock. Shared by the whole process are the
   document callback OnNAVODocument (dk_UstawCallBack), the line counters i_lNumerLinii and
   i_lLinii, and the last error code. So one load runs at a time in the whole process, and its
   callback must not start another; the readers count the LFs they take into i_lNumerLinii and
   belong to that one job too. Another thread may read the two counters during a load, for a
   progress display: each value is stored whole. All other work touches only the context,
   dictionary, definition list or stream it is given, and may run on separate contexts on
   separate threads at once, beside the one load: building documents, field and packed access,
   the envelope, saving, and definition loads (each with its own cursor in its text). One
   context, and anything of it, is used by one thread at a time. The store's guesses of where a
   name was found last are shared between contexts but checked before use, so another thread's
   guess costs a lookup and nothing else. */
#ifndef NAVO_H
#define NAVO_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* NAVO_API marks the exported names; everything else in the library is hidden.
   Define NAVO_STATIC when linking the static library on Windows. */
#if defined(_WIN32) || defined(__CYGWIN__)
#  if defined(NAVO_STATIC)
#    define NAVO_API
#  elif defined(NAVO_BUILDING)
#    define NAVO_API __declspec(dllexport)
#  else
#    define NAVO_API __declspec(dllimport)
#  endif
#else
#  if defined(NAVO_BUILDING) && defined(__GNUC__)
#    define NAVO_API __attribute__((visibility("default")))
#  else
#    define NAVO_API
#  endif
#endif

/* Calling convention of every exported function and of the document callback. */
#if defined(_WIN32) && !defined(NAVO_CALL)
#  define NAVO_CALL __cdecl
#elif !defined(NAVO_CALL)
#  define NAVO_CALL
#endif

/* C++ hosts see every function as noexcept: the library throws nothing. */
#if defined(__cplusplus)
#  define NAVO_NOEXCEPT noexcept
#else
#  define NAVO_NOEXCEPT
#endif

#define NAVO_VERSION_MAJOR 1
#define NAVO_VERSION_MINOR 0
#define NAVO_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/* ---- string dictionary ---------------------------------------------------------------------- */

typedef struct dk_sdBucket {
    int32_t count;
    int32_t *ids;
} dk_sdBucket;

typedef struct dk_sdDictionary {
    int32_t count;
    char **strings;
    uint32_t bucketCount;
    dk_sdBucket *buckets;
} dk_sdDictionary;

/* ---- definitions ---------------------------------------------------------------------------- */

typedef struct dk_dfField {
    int32_t nameId;
    int32_t offset;
    int32_t width;
} dk_dfField;

typedef struct dk_dfBlock {
    int32_t tagId;
    char *name;
    int32_t recordLength;
    int32_t fieldCount;
    dk_dfField *fields;
    int32_t *positionByName;
} dk_dfBlock;

typedef struct dk_dfBlockRef {
    int32_t occurrence;
    int32_t blockIndex;
    char *name;
} dk_dfBlockRef;

typedef struct dk_dfForm {
    int32_t id;
    int32_t refCount;
    dk_dfBlockRef *refs;
    int32_t *positionByTag;
} dk_dfForm;

typedef struct dk_dfDefinition {
    char *name;
    int32_t formCount;
    dk_dfForm *forms;
    int32_t blockCount;
    dk_dfBlock *blocks;
} dk_dfDefinition;

typedef struct dk_dfDefinitionList {
    int32_t count;
    dk_dfDefinition *items;
} dk_dfDefinitionList;

/* ---- envelope records ----------------------------------------------------------------------- */

typedef struct dk_FileProlog {
    char doctypeLine[50];
    char versionLine[28];
    char encodingLine[40];
} dk_FileProlog;

typedef struct dk_FileHeader {
    char line1[52];
    char line2[9];
    char line3[25];
    char line4[25];
    char line5[33];
} dk_FileHeader;

typedef struct dk_ErrorNote {
    char text1[11];
    char text2[11];
    char text3[11];
    char text4[11];
} dk_ErrorNote;

typedef struct dk_OcrNote {
    int32_t kind;
    char text1[11];
    char text2[11];
    char text3[11];
    char text4[73];
    char text5[25];
    char text6[25];
} dk_OcrNote;

typedef struct dk_FileFooter {
    int32_t noteCount;
    dk_ErrorNote *notes;
} dk_FileFooter;

typedef struct dk_DocHeader {
    char line1[52];
    char line2[9];
    char line3[9];
    char line4[9];
    char line5[25];
    char line6[9];
    char line7[25];
    char line8[25];
    char line9[9];
    char line10[25];
    char line11[25];
    char line12[2];
    char line13[2];
    char line14[33];
} dk_DocHeader;

typedef struct dk_DocFooter {
    int32_t ocrCount;
    dk_OcrNote *ocrNotes;
    int32_t errorCount;
    dk_ErrorNote *errorNotes;
} dk_DocFooter;

/* ---- block stores and the file pool --------------------------------------------------------- */

typedef struct dk_lfField {
    int32_t loaded;
    int32_t dirty;
    char *text;
} dk_lfField;

typedef struct dk_lfBlock {
    char *path;
    FILE *file;
    int32_t currentRecord;
    int32_t dirty;
    int32_t recordCount;
    dk_lfField *fields;
} dk_lfBlock;

typedef struct dk_lfFilePool {
    int32_t capacity;
    int32_t count;
    dk_lfBlock **blocks;
} dk_lfFilePool;

/* ---- document tables ------------------------------------------------------------------------ */

typedef struct dk_Document {
    dk_lfFilePool *filePool;
    dk_DocHeader header;
    dk_DocFooter footer;
    int32_t blockCount;
    dk_lfBlock **blocks;
} dk_Document;

typedef struct dk_DocumentList {
    int32_t count;
    dk_Document *documents;
} dk_DocumentList;

/* ---- the context ---------------------------------------------------------------------------- */

typedef struct dk_Context {
    dk_sdDictionary *dictionary;
    dk_dfDefinitionList *definitions;
    dk_FileProlog prolog;
    dk_FileHeader header;
    dk_FileFooter footer;
    dk_lfFilePool *filePool;
    int32_t formCount;
    dk_DocumentList *documentLists;
} dk_Context;

/* ---- the document callback and the exported variables --------------------------------------- */

typedef int32_t (NAVO_CALL *dk_DocumentCallback)(dk_Context *ctx, const char *form, int32_t docIndex);

NAVO_API extern int32_t i_lNumerLinii;
NAVO_API extern int32_t i_lLinii;
NAVO_API extern dk_DocumentCallback OnNAVODocument;

/* ---- Context -------------------------------------------------------------------------------- */

/* dk_Init gives 0 for a null out; it sets *out before anything can fail: to null when not even
   the record can be had, else to the context with what was made of it. dk_Destroy gives 0 and
   releases nothing for a null pointer, a null context, or a context without document tables
   (dk_InitDocuments never succeeded on it, or its definition has no form); on success *ctx is
   null. dk_Malloc gives null when memory runs out; dk_Free takes null. */

NAVO_API int32_t NAVO_CALL dk_Init(dk_Context **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_Destroy(dk_Context **ctx) NAVO_NOEXCEPT;
NAVO_API void *NAVO_CALL dk_Malloc(size_t size) NAVO_NOEXCEPT;
NAVO_API void NAVO_CALL dk_Free(void *pointer) NAVO_NOEXCEPT;

/* ---- Dictionary ----------------------------------------------------------------------------- */

/* A null dictionary, or one whose buckets could not be made, gives 0 (dk_sdDestroy: 1);
   dk_sdGetSafeID then sets *out to -1 while dk_sdGetID leaves it as it was (on a usable
   dictionary it sets -1 for a text not held). Texts and out-parameters must not be null. dk_sdInit sets *out even when the
   buckets fail or bucketCount is 0, for dk_sdDestroy to take back. A failed add interns nothing.
   dk_sdStrCmp gives -1, 0 or 1. dk_sdTrimAll gives 0 for a size below 1 (nothing written) and
   when the kept bytes fill all of out (then unterminated). */

NAVO_API int32_t NAVO_CALL dk_sdInit(dk_sdDictionary **out, uint32_t bucketCount) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_sdDestroy(dk_sdDictionary **dictionary) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_sdGetID(dk_sdDictionary *dictionary, const char *text, int32_t *out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_sdGetSafeID(dk_sdDictionary *dictionary, const char *text, int32_t *out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_sdAddStr(dk_sdDictionary *dictionary, const char *text) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_sdDelStr(dk_sdDictionary *dictionary, const char *text) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_sdDopisz(dk_sdDictionary *dictionary, const char *text) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_sdStrCmp(const char *left, const char *right) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_sdTrimAll(const char *text, char *out, int32_t size) NAVO_NOEXCEPT;

/* ---- Status and hooks ----------------------------------------------------------------------- */

/* dk_GetNAVOError and dk_GetNAVOLine give the code and line of the last load (both 0 before
   the first). The message calls give 0 for a null out or a size below 1, with nothing written,
   and for a code the catalogue lacks, with out zero-filled; a longer message is cut to
   size - 1 bytes, with 1. dk_OnNAVOError gives 1 for code 0, else 0. dk_OnNAVODocument gives 0
   when no callback is set or it gives 0, else 2; with a null callback a load lets every
   document go. */

NAVO_API int32_t NAVO_CALL dk_GetNAVOLine(void) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetNAVOError(void) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetNAVOErrorMessage(int32_t code, char *out, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetLastNAVOErrorMessage(char *out, int32_t size) NAVO_NOEXCEPT;
NAVO_API void NAVO_CALL dk_UstawCallBack(dk_DocumentCallback callback) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_OnNAVOError(int32_t code) NAVO_NOEXCEPT;
NAVO_API void NAVO_CALL dk_OnNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex,
                                       const char *block, int32_t recordIndex) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_OnNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex) NAVO_NOEXCEPT;

/* ---- Definitions and embedded texts --------------------------------------------------------- */

/* dk_dfInit gives 0 for a null out, and sets *out to null when the list cannot be had.
   dk_dfLoadDefinition gives 0 for a null argument, a text that breaks the grammar and a version
   already in the list; a failed load takes its definition out of the list again, except when a
   name could not be interned, where the half-built definition stays last for
   dk_dfDestroyDefinition. Names interned before a failure stay in the dictionary.
   dk_dfDestroyDefinition gives 0 for a null or empty list and an index outside it; dk_dfDestroy
   takes null. GetDefTXT_1_2 and GetDefTXT_1_3 give constant texts, never null. */

NAVO_API int32_t NAVO_CALL dk_dfInit(dk_dfDefinitionList **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_dfLoadDefinition(dk_dfDefinitionList *list, dk_sdDictionary *dictionary,
                                               const char *text) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_dfDestroyDefinition(dk_dfDefinitionList *list, int32_t index) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_dfDestroy(dk_dfDefinitionList **list) NAVO_NOEXCEPT;

NAVO_API const char *NAVO_CALL GetDefTXT_1_2(void) NAVO_NOEXCEPT;
NAVO_API const char *NAVO_CALL GetDefTXT_1_3(void) NAVO_NOEXCEPT;

/* ---- Documents ------------------------------------------------------------------------------ */

/* The tables follow definition 0 of the context's list. dk_InitDocuments gives 0 without it or
   for a size below 1; tables that still hold documents are left as they are, out of reach, and
   a failure may leave the context without tables. dk_1fGetIDFormularza gives the ID of any name
   the dictionary holds (forms have the IDs 0 to formCount - 1), -1 for null or a name not held.
   A null context or form, a name that is no form of the tables, a docIndex outside
   0 .. count - 1 and (dk_RemoveAllDocuments) a context without tables give 0; dk_AddDocument and dk_GetDocCount set *out to -1 first (a null out gives
   0), and a failed add leaves no document. A removal moves the documents behind it down one
   index, and an add or removal moves them in memory. */

NAVO_API int32_t NAVO_CALL dk_InitDocuments(dk_Context *ctx, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_1fGetIDFormularza(dk_Context *ctx, const char *form) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_AddDocument(dk_Context *ctx, const char *form, int32_t *out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_RemoveDocument(dk_Context *ctx, const char *form, int32_t docIndex) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_RemoveDocuments(dk_Context *ctx, const char *form) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_RemoveAllDocuments(dk_Context *ctx) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetDocCount(dk_Context *ctx, const char *form, int32_t *out) NAVO_NOEXCEPT;

/* ---- Spool ---------------------------------------------------------------------------------- */

/* dk_lfBlockSave writes the changed fields of a repeating block's cached record to its spool
   file. It gives 0 for a null argument, a single block, a block that did not build the store and
   a record without changes; a failed write keeps the fields not yet written marked changed. */

NAVO_API int32_t NAVO_CALL dk_lfBlockSave(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block) NAVO_NOEXCEPT;

/* ---- Fields --------------------------------------------------------------------------------- */

/* dk_GetField sets out to "" first (a null out or a size below 1 gives 0) and gives at most
   size - 1 bytes of the field. A null name, a form, tag or field the tables do not know, and a
   docIndex or recordIndex out of range give 0; a single block has record 0 only. dk_SetField
   refuses a null value. On 0 no field has changed, though a move of the record cursor may have
   saved the record it left. */

NAVO_API int32_t NAVO_CALL dk_SetField(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex, const char *field, const char *value) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetField(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex, const char *field, char *out, int32_t size) NAVO_NOEXCEPT;

/* ---- Records of repeating blocks ------------------------------------------------------------ */

/* For repeating blocks only: a single block's tag gives 0, as do a null argument, an unknown
   form or tag and a docIndex out of range. dk_AddBlock and dk_GetBlockCount set *out to -1 first (a null out gives
   0); a failed add leaves the count as it was. dk_RemoveBlock refuses a negative index and the
   block's last record, gives 1 and removes nothing for an index past the end, and moves the
   records behind the one removed down one index. */

NAVO_API int32_t NAVO_CALL dk_AddBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t *out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_RemoveBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                          int32_t recordIndex) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetBlockCount(dk_Context *ctx, const char *form, int32_t docIndex,
                                            const char *block, int32_t *out) NAVO_NOEXCEPT;

/* ---- Packed access -------------------------------------------------------------------------- */

/* A packed record is each field at its full width followed by a NUL, field after field; a packed
   document is the records of its single blocks in form order. The getters set *out to null first
   (a null out gives 0) and hand out a block of exactly size bytes, zeros behind the data, for
   dk_Free; data longer than size give 1 with *out still null. A form without documents, an
   unknown form or tag, a single block's tag in the record calls and an index out of range give
   0. The setters refuse a null value and a size below the packed length before writing anything;
   a failure after that leaves the fields before it written. */

NAVO_API int32_t NAVO_CALL dk_GetNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex, char **out,
                                              int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                           int32_t recordIndex, char **out, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SetNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex,
                                              const char *value, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SetNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                           int32_t recordIndex, const char *value, int32_t size) NAVO_NOEXCEPT;

/* ---- Envelope ------------------------------------------------------------------------------- */

/* The getters point into the context: a document's records move when documents of its form are
   added or removed. A null out gives 0. dk_GetNAVOProlog, dk_GetNAVOHeader and dk_GetNAVOFooter
   set *out to null for a null context; dk_GetDocHeader and dk_GetDocFooter leave *out as it was
   on failure. dk_SetDefaultNAVOProlog refuses a null or too long version, with the prolog as it
   was. The add calls copy the note with each text blank-filled to its width; a null argument, an
   unknown document and a note whose last text has no NUL within its capacity are refused with
   nothing changed, and an allocation that fails leaves the list with a count of 0. */

NAVO_API int32_t NAVO_CALL dk_SetDefaultNAVOProlog(dk_Context *ctx, const char *version) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetNAVOProlog(dk_Context *ctx, dk_FileProlog **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetNAVOHeader(dk_Context *ctx, dk_FileHeader **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetNAVOFooter(dk_Context *ctx, dk_FileFooter **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetDocHeader(dk_Context *ctx, const char *form, int32_t docIndex, dk_DocHeader **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetDocFooter(dk_Context *ctx, const char *form, int32_t docIndex, dk_DocFooter **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_AddNAVOError(dk_Context *ctx, const dk_ErrorNote *note) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_AddDocError(dk_Context *ctx, const char *form, int32_t docIndex,
                                          const dk_ErrorNote *note) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_AddDocOCR(dk_Context *ctx, const char *form, int32_t docIndex, const dk_OcrNote *note) NAVO_NOEXCEPT;

/* ---- Readers -------------------------------------------------------------------------------- */

/* The readers take a host's stream a byte at a time and leave the rest in it; TAB and LF are
   never characters, and each LF taken raises i_lNumerLinii. dk_LoadChar gives the byte as a
   signed 8-bit value, -1 at the end and for a null stream (so byte 0xFF reads as -1 too). A null
   stream or out gives 0. dk_LoadStringbyLen and dk_LoadStringforTag clear out first;
   dk_LoadStringforTag gives 1 without reading for a size below 1. dk_LoadStringtoTerminator
   releases *out first (null or an earlier result of its own); a text read before a closing tag
   that fails stays in *out, for dk_Free. */

NAVO_API int32_t NAVO_CALL dk_LoadChar(FILE *stream) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_LoadStringbyLen(FILE *stream, char *out, int32_t size, int32_t count) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_LoadStringforTag(FILE *stream, char *out, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_LoadStringtoTerminator(FILE *stream, char **out, const char *block) NAVO_NOEXCEPT;

/* ---- Load and save -------------------------------------------------------------------------- */

/* dk_LoadNAVO gives 0 for a null context or path and touches nothing else; otherwise it sets the
   code to 0 and i_lNumerLinii to 1 first, and a file that cannot be opened gives code 2 with the
   context as it was. Once the file is open the context's documents, definition 0 and file notes
   go; a failure leaves its code and line, the failed section's document removed, and whatever
   else the load had read. Result 2 leaves the document the callback kept, with code 10.
   The save calls give 0 for a null context, path or stream, with nothing written; a failure
   leaves in the stream, or in dk_SaveNAVO's file, what was written before it. dk_SaveDocument
   refuses an OCR note kind outside 0 to 3 before its first byte. dk_OpenFileforSave sets *out to
   null first. dk_CloseFile gives 1 for any stream it closes, whatever fclose says. */

NAVO_API int32_t NAVO_CALL dk_LoadNAVO(dk_Context *ctx, const char *path) NAVO_NOEXCEPT;

NAVO_API int32_t NAVO_CALL dk_OpenFileforSave(FILE **out, const char *path) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SaveProlog(dk_Context *ctx, FILE *stream) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SaveHeader(dk_Context *ctx, FILE *stream) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SaveDocument(dk_Context *ctx, const char *form, int32_t docIndex, FILE *stream,
                                          int32_t envelope) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SaveFooter(dk_Context *ctx, FILE *stream) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_CloseFile(FILE *stream) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SaveNAVO(dk_Context *ctx, const char *path, int32_t envelope) NAVO_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* NAVO_H */
