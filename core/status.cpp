/* dk_status.c - errors and notifications of Part 1.3: catalogue, counters, callback and hooks. */
#include "core/status.hpp"

#include <string.h>

/* The messages are CP1250 bytes, written as escapes so the source stays ASCII; each literal is
   split behind an escape because a hex escape would swallow the hex letters that follow. */
const dk_ErrorEntry dk_ErrorCatalogue[DK_ERROR_CATALOGUE_ROWS] = {
    { 0, "Wszystko jest w porz\xB9" "dku" },
    { 1, "Z\xB3" "y format pliku NAVO - to nie jest plik NAVO" },
    { 2, "Nie powiod\xB3" "a sie pr\xF3" "ba otwarcia pliku NAVO" },
    { 3, "B\xB3" "\xB9" "d odczytu - niespodziewany koniec pliku" },
    { 4, "Z\xB3" "y format pliku - oczekiwano innego wpisu" },
    { 5, "Z\xB3" "y format dokumentu - b\xB3" "\xB9" "d podczas analizy dokumentu" },
    { 6, "Wyst\xB9" "pi\xB3" " nieoczekiwany blok, kt\xF3" "rego nie ma w definicji dokumentu" },
    { 7, "Z\xB3" "y rozmiar bloku" },
    { 8, "B\xB3" "\xB9" "d systemu - nie uda\xB3" "o si\xEA" " utworzy\xE6" " dokumentu" },
    { 9, "Brak wolnej pami\xEA" "ci !" },
    { 10, "Anulowano" },
};

static int32_t i_lKodBledu;

extern "C" {
NAVO_API int32_t i_lNumerLinii;
NAVO_API int32_t i_lLinii;
NAVO_API dk_DocumentCallback OnNAVODocument;
}

void dk_SetErrorCode(int32_t code)
{
    i_lKodBledu = code;
}

int32_t dk_GetErrorCode(void)
{
    return i_lKodBledu;
}

int32_t dk_RaiseError(int32_t code)
{
    i_lKodBledu = code;
    return dk_OnNAVOError(code);
}

extern "C" {

NAVO_API int32_t NAVO_CALL dk_GetNAVOLine(void) noexcept
{
    return i_lNumerLinii;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOError(void) noexcept
{
    return i_lKodBledu;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOErrorMessage(int32_t code, char *out, int32_t size) noexcept
{
    size_t capacity;
    size_t length;
    int i;
    /* A size below 1 is outside the contract; nothing is written then. */
    if (out == NULL || size < 1)
        return 0;
    capacity = (size_t)size;
    memset(out, 0, capacity);
    for (i = 0; i < DK_ERROR_CATALOGUE_ROWS; i++) {
        if (dk_ErrorCatalogue[i].code != code)
            continue;
        length = strlen(dk_ErrorCatalogue[i].message);
        memcpy(out, dk_ErrorCatalogue[i].message, length < capacity ? length : capacity - 1);
        return 1;
    }
    return 0;
}

NAVO_API int32_t NAVO_CALL dk_GetLastNAVOErrorMessage(char *out, int32_t size) noexcept
{
    return dk_GetNAVOErrorMessage(i_lKodBledu, out, size);
}

NAVO_API void NAVO_CALL dk_UstawCallBack(dk_DocumentCallback callback) noexcept
{
    OnNAVODocument = callback;
}

NAVO_API int32_t NAVO_CALL dk_OnNAVOError(int32_t code) noexcept
{
    return code == 0 ? 1 : 0;
}

NAVO_API void NAVO_CALL dk_OnNAVOBlock(dk_Context *ctx, const char *form, int32_t docIndex, const char *block,
                                       int32_t recordIndex) noexcept
{
    /* A hook with no body: the loader's call marks the point where a host build could listen. */
    (void)ctx;
    (void)form;
    (void)docIndex;
    (void)block;
    (void)recordIndex;
}

NAVO_API int32_t NAVO_CALL dk_OnNAVODocument(dk_Context *ctx, const char *form, int32_t docIndex) noexcept
{
    if (OnNAVODocument == NULL)
        return 0;
    return OnNAVODocument(ctx, form, docIndex) == 0 ? 0 : 2;
}

}  // extern "C"
