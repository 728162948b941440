/* navo.h - the one public header of libnavo: records, functions and variables a host uses. */
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

NAVO_API int32_t NAVO_CALL dk_Init(dk_Context **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_Destroy(dk_Context **ctx) NAVO_NOEXCEPT;
NAVO_API void *NAVO_CALL dk_Malloc(size_t size) NAVO_NOEXCEPT;
NAVO_API void NAVO_CALL dk_Free(void *pointer) NAVO_NOEXCEPT;

/* ---- Dictionary ----------------------------------------------------------------------------- */

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

NAVO_API int32_t NAVO_CALL dk_dfInit(dk_dfDefinitionList **out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_dfLoadDefinition(dk_dfDefinitionList *list, dk_sdDictionary *dictionary,
                                               const char *text) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_dfDestroyDefinition(dk_dfDefinitionList *list, int32_t index) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_dfDestroy(dk_dfDefinitionList **list) NAVO_NOEXCEPT;

NAVO_API const char *NAVO_CALL GetDefTXT_1_2(void) NAVO_NOEXCEPT;
NAVO_API const char *NAVO_CALL GetDefTXT_1_3(void) NAVO_NOEXCEPT;

/* ---- Documents ------------------------------------------------------------------------------ */

NAVO_API int32_t NAVO_CALL dk_InitDocuments(dk_Context *ctx, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_1fGetIDFormularza(dk_Context *ctx, const char *form) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_AddDocument(dk_Context *ctx, const char *form, int32_t *out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_RemoveDocument(dk_Context *ctx, const char *form, int32_t docIndex) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_RemoveDocuments(dk_Context *ctx, const char *form) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_RemoveAllDocuments(dk_Context *ctx) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetDocCount(dk_Context *ctx, const char *form, int32_t *out) NAVO_NOEXCEPT;

/* ---- Spool ---------------------------------------------------------------------------------- */

NAVO_API int32_t NAVO_CALL dk_lfBlockSave(dk_Document *document, dk_lfBlock *store, const dk_dfBlock *block) NAVO_NOEXCEPT;

/* ---- Fields --------------------------------------------------------------------------------- */

NAVO_API int32_t NAVO_CALL dk_SetField(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex, const char *field, const char *value) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetField(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex, const char *field, char *out, int32_t size) NAVO_NOEXCEPT;

/* ---- Records of repeating blocks ------------------------------------------------------------ */

NAVO_API int32_t NAVO_CALL dk_AddBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t *out) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_RemoveBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                          int32_t recordIndex) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetBlockCount(dk_Context *ctx, const char *form, int32_t docIndex,
                                            const char *block, int32_t *out) NAVO_NOEXCEPT;

/* ---- Packed access -------------------------------------------------------------------------- */

NAVO_API int32_t NAVO_CALL dk_GetNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex, char **out,
                                              int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_GetNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                           int32_t recordIndex, char **out, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SetNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex,
                                              const char *value, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_SetNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                           int32_t recordIndex, const char *value, int32_t size) NAVO_NOEXCEPT;

/* ---- Envelope ------------------------------------------------------------------------------- */

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

NAVO_API int32_t NAVO_CALL dk_LoadChar(FILE *stream) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_LoadStringbyLen(FILE *stream, char *out, int32_t size, int32_t count) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_LoadStringforTag(FILE *stream, char *out, int32_t size) NAVO_NOEXCEPT;
NAVO_API int32_t NAVO_CALL dk_LoadStringtoTerminator(FILE *stream, char **out, const char *block) NAVO_NOEXCEPT;

/* ---- Load and save -------------------------------------------------------------------------- */

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
