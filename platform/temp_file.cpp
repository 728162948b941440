/* dk_tempfile.c - temporary spool files on Windows (GetTempFileNameA) and POSIX (O_EXCL creation). */
#if !defined(_WIN32)
#  define _POSIX_C_SOURCE 200809L
#endif

#include "platform/temp_file.hpp"

#include <string.h>

#if defined(_WIN32)

#include <windows.h>
#include <aclapi.h>

/* Narrows the new file to the user the process (or the impersonating thread) runs as: one ACE,
   full access for that user's SID, in a protected DACL, so that nothing is inherited from the
   temporary directory. Returns 1, or 0 when the DACL could not be set; the caller keeps the file
   then, with the ACL it inherited (docs/decisions.md, "Windows"). */
static int dk_tfRestrictToOwner(char *path)
{
    union {
        TOKEN_USER user;
        unsigned char bytes[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    } owner;
    union {
        ACL acl;
        unsigned char bytes[sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) + SECURITY_MAX_SID_SIZE];
    } dacl;
    HANDLE token = NULL;
    DWORD ownerSize = 0;
    DWORD aclSize;
    BOOL got;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) &&
        !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return 0;
    got = GetTokenInformation(token, TokenUser, &owner, (DWORD)sizeof owner, &ownerSize);
    CloseHandle(token);
    if (!got || !IsValidSid(owner.user.User.Sid))
        return 0;
    aclSize = (DWORD)(sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD)) +
              GetLengthSid(owner.user.User.Sid);
    if (aclSize > sizeof dacl)
        return 0;
    if (!InitializeAcl(&dacl.acl, aclSize, ACL_REVISION) ||
        !AddAccessAllowedAce(&dacl.acl, ACL_REVISION, FILE_ALL_ACCESS, owner.user.User.Sid))
        return 0;
    return SetNamedSecurityInfoA(path, SE_FILE_OBJECT,
                                 DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                 NULL, NULL, &dacl.acl, NULL) == ERROR_SUCCESS;
}

int32_t dk_tfCreate(char *out, size_t size)
{
    /* Part 3.2: two buffers of 260 bytes (MAX_PATH); GetTempPathA's own maximum is MAX_PATH+1
       characters with the terminator, which does not fit and is reported as a failure. */
    char directory[DK_TF_PATH_SIZE];
    char path[DK_TF_PATH_SIZE];
    DWORD length;
    size_t pathLength;
    if (out == NULL || size == 0)
        return 0;
    out[0] = '\0';
    /* The directory of TMP, else TEMP, else USERPROFILE, else the Windows directory. */
    length = GetTempPathA((DWORD)sizeof directory, directory);
    if (length == 0 || length >= sizeof directory)
        return 0;
    /* Unique number 0: the system invents the name and creates the empty file itself (CREATE_NEW,
       so an existing file is never taken over), then closes it. */
    if (GetTempFileNameA(directory, DK_TF_PREFIX, 0, path) == 0)
        return 0;
    pathLength = strlen(path);
    if (pathLength >= size) {
        DeleteFileA(path);
        return 0;
    }
    /* Best effort, as the POSIX mode 0600 is on a file system without permissions: where the
       volume keeps no ACLs (FAT, some network shares) the file stays as the directory made it. */
    (void)dk_tfRestrictToOwner(path);
    memcpy(out, path, pathLength + 1);
    return 1;
}

FILE *dk_tfOpen(const char *path)
{
    return fopen(path, "r+b");
}

int32_t dk_tfRecreate(const char *path)
{
    char copy[DK_TF_PATH_SIZE];
    size_t length;
    HANDLE file;
    if (path == NULL || (length = strlen(path)) >= sizeof copy)
        return 0;
    memcpy(copy, path, length + 1);
    /* CREATE_NEW: never an existing file, like O_EXCL. */
    file = CreateFileA(copy, GENERIC_READ | GENERIC_WRITE, 0, NULL, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, NULL);
    if (file == INVALID_HANDLE_VALUE)
        return 0;
    CloseHandle(file);
    (void)dk_tfRestrictToOwner(copy);
    return 1;
}

#else

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#ifndef P_tmpdir
#  define P_tmpdir "/tmp"
#endif

/* Letters of the random suffix and its length: 62^12 names leave a guess no chance. */
static const char suffixAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
#define DK_TF_SUFFIX_LENGTH 12
#define DK_TF_ATTEMPTS 100
#define DK_TF_MODE (S_IRUSR | S_IWUSR)

static const char *dk_tfDirectory(void)
{
    const char *directory = getenv("TMPDIR");
    if (directory == NULL || directory[0] == '\0')
        directory = P_tmpdir;
    if (directory == NULL || directory[0] == '\0')
        directory = "/tmp";
    return directory;
}

/* Random bytes from the kernel; when /dev/urandom is unreadable, a mix of time, address and
   process id, which O_EXCL still makes safe (only the unpredictability suffers). */
static void dk_tfRandom(unsigned char *bytes, size_t count)
{
    static uint64_t fallback;
    size_t got = 0;
    int descriptor = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) {
        while (got < count) {
            ssize_t n = read(descriptor, bytes + got, count - got);
            if (n <= 0) {
                if (n < 0 && errno == EINTR)
                    continue;
                break;
            }
            got += (size_t)n;
        }
        close(descriptor);
    }
    if (got < count) {
        struct timespec now;
        size_t i;
        clock_gettime(CLOCK_REALTIME, &now);
        fallback ^= (uint64_t)now.tv_nsec * 0x9E3779B97F4A7C15u ^ (uint64_t)now.tv_sec ^
                    ((uint64_t)getpid() << 32) ^ (uint64_t)(uintptr_t)bytes;
        for (i = got; i < count; i++) {
            /* xorshift64: enough to spread the seed over the remaining bytes */
            fallback ^= fallback << 13;
            fallback ^= fallback >> 7;
            fallback ^= fallback << 17;
            bytes[i] = (unsigned char)(fallback >> 24);
        }
    }
}

int32_t dk_tfCreate(char *out, size_t size)
{
    const char *directory;
    size_t directoryLength;
    size_t prefixLength = strlen(DK_TF_PREFIX);
    size_t needed;
    int attempt;
    if (out == NULL || size == 0)
        return 0;
    out[0] = '\0';
    directory = dk_tfDirectory();
    directoryLength = strlen(directory);
    while (directoryLength > 1 && directory[directoryLength - 1] == '/')
        directoryLength--;
    needed = directoryLength + 1 + prefixLength + DK_TF_SUFFIX_LENGTH + 1;
    if (needed > size)
        return 0;
    for (attempt = 0; attempt < DK_TF_ATTEMPTS; attempt++) {
        unsigned char random[DK_TF_SUFFIX_LENGTH];
        char *cursor = out;
        size_t i;
        int descriptor;
        memcpy(cursor, directory, directoryLength);
        cursor += directoryLength;
        if (directoryLength == 0 || directory[directoryLength - 1] != '/')
            *cursor++ = '/';
        memcpy(cursor, DK_TF_PREFIX, prefixLength);
        cursor += prefixLength;
        dk_tfRandom(random, sizeof random);
        for (i = 0; i < DK_TF_SUFFIX_LENGTH; i++)
            *cursor++ = suffixAlphabet[random[i] % (sizeof suffixAlphabet - 1)];
        *cursor = '\0';
        /* O_EXCL makes the creation itself the uniqueness test: no race with another process. */
        descriptor = open(out, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, DK_TF_MODE);
        if (descriptor >= 0) {
            close(descriptor);
            return 1;
        }
        if (errno != EEXIST)
            break;
    }
    out[0] = '\0';
    return 0;
}

FILE *dk_tfOpen(const char *path)
{
    FILE *file;
    int descriptor = open(path, O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return NULL;
    file = fdopen(descriptor, "r+b");
    if (file == NULL)
        close(descriptor);
    return file;
}

int32_t dk_tfRecreate(const char *path)
{
    int descriptor;
    if (path == NULL)
        return 0;
    /* O_EXCL never takes over what stands at the path, and with O_CREAT follows no link. */
    descriptor = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, DK_TF_MODE);
    if (descriptor < 0)
        return 0;
    close(descriptor);
    return 1;
}

#endif
