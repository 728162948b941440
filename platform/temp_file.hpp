/* dk_tempfile.h - temporary spool files: a new, empty, uniquely named file made by the platform. */
#ifndef DK_TEMPFILE_H
#define DK_TEMPFILE_H

#include <stddef.h>
#include <stdint.h>

/* Every spool file's name begins with this prefix (Part 3.2). */
#define DK_TF_PREFIX "P2_"

/* Room for a temporary file's full path with its terminator: the 260 bytes of Part 3.2 on
   Windows; POSIX directories may be deeper, so there the usual PATH_MAX. */
#if defined(_WIN32)
#  define DK_TF_PATH_SIZE 260
#else
#  define DK_TF_PATH_SIZE 4096
#endif

/* Creates a new empty file, that no other file's name matches, whose name begins with
   DK_TF_PREFIX, in the directory for temporary files (TMPDIR, else the system's), readable and
   writable by its owner only, and writes its full path into `out` of `size` bytes.
   Returns 1, or 0 with `out` empty and no file left behind. */
int32_t dk_tfCreate(char *out, size_t size);

/* Opens the spool file at `path` for update in binary mode (Part 3.2's fopen "r+b"), refusing
   a symbolic link in its place, so a link put there can't redirect the library's writes.
   Returns the stream, or null. */
#include <stdio.h>
FILE *dk_tfOpen(const char *path);

/* Makes the spool file at `path` anew, empty, after it went missing (Part 3.2's fopen "w"): with
   the same owner-only permissions as dk_tfCreate, and only if nothing stands at `path` now, so
   that a file or link someone put there meanwhile is neither truncated nor followed.
   Returns 1, or 0 when the file could not be made. */
int32_t dk_tfRecreate(const char *path);

#endif /* DK_TEMPFILE_H */
