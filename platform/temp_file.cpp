// platform/temp_file.cpp - temporary spool files on Windows (GetTempFileNameA) and POSIX (O_EXCL creation).
#if !defined(_WIN32) && !defined(_GNU_SOURCE) && !defined(_POSIX_C_SOURCE)
#  define _POSIX_C_SOURCE 200809L  // O_NOFOLLOW, O_CLOEXEC, fdopen, clock_gettime
#endif

#include "platform/temp_file.hpp"

#include <algorithm>
#include <cstring>

#if defined(_WIN32)

#include <windows.h>

namespace navo::platform {
namespace {

// Narrows the new file to the user the process (or the impersonating thread) runs as: one ACE,
// full access for that user's SID, in a protected DACL, so that nothing is inherited from the
// temporary directory. Gives false when the DACL could not be set; the caller keeps the file
// then, with the ACL it inherited (docs/decisions.md, "Windows").
bool restrict_to_owner(const char *path) noexcept
{
    union {
        TOKEN_USER user;
        unsigned char bytes[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    } owner;
    union {
        ACL acl;
        unsigned char bytes[sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) + SECURITY_MAX_SID_SIZE];
    } dacl;
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) &&
        !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return false;
    DWORD ownerSize = 0;
    const BOOL got = GetTokenInformation(token, TokenUser, &owner, static_cast<DWORD>(sizeof owner), &ownerSize);
    CloseHandle(token);
    if (!got || !IsValidSid(owner.user.User.Sid))
        return false;
    const DWORD aclSize = static_cast<DWORD>(sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD)) +
                          GetLengthSid(owner.user.User.Sid);
    if (aclSize > sizeof dacl)
        return false;
    if (!InitializeAcl(&dacl.acl, aclSize, ACL_REVISION) ||
        !AddAccessAllowedAce(&dacl.acl, ACL_REVISION, FILE_ALL_ACCESS, owner.user.User.Sid))
        return false;
    // The descriptor itself says the DACL is protected, and SetFileSecurityA hands it to the file
    // system as it stands. SetNamedSecurityInfoA would first merge the directory's inheritable
    // ACEs in wherever its flag PROTECTED_DACL_SECURITY_INFORMATION is not honoured: under Wine 8
    // the file then stayed readable by every user of the machine.
    SECURITY_DESCRIPTOR descriptor;
    return InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) &&
           SetSecurityDescriptorDacl(&descriptor, TRUE, &dacl.acl, FALSE) &&
           SetSecurityDescriptorControl(&descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED) &&
           SetFileSecurityA(path, DACL_SECURITY_INFORMATION, &descriptor);
}

}  // namespace

bool create_temp_file(std::span<char> out) noexcept
{
    if (out.empty())
        return false;
    out[0] = '\0';
    // Two buffers of MAX_PATH bytes; GetTempPathA's own maximum is MAX_PATH+1 characters with the
    // terminator, which does not fit and is reported as a failure.
    char directory[temp_path_size];
    // The directory of TMP, else TEMP, else USERPROFILE, else the Windows directory.
    const DWORD length = GetTempPathA(static_cast<DWORD>(sizeof directory), directory);
    if (length == 0 || length >= sizeof directory)
        return false;
    // Unique number 0: the system invents the name and creates the empty file itself (CREATE_NEW,
    // so an existing file is never taken over), then closes it.
    char path[temp_path_size];
    if (GetTempFileNameA(directory, temp_prefix, 0, path) == 0)
        return false;
    const std::size_t pathLength = std::strlen(path);
    if (pathLength >= out.size()) {
        DeleteFileA(path);
        return false;
    }
    // Best effort, as the POSIX mode 0600 is on a file system without permissions: where the
    // volume keeps no ACLs (FAT, some network shares) the file stays as the directory made it.
    (void)restrict_to_owner(path);
    std::memcpy(out.data(), path, pathLength + 1);
    return true;
}

File open_temp_file(const char *path) noexcept
{
    return File(std::fopen(path, "r+b"));
}

bool recreate_temp_file(const char *path) noexcept
{
    if (path == nullptr)
        return false;
    // CREATE_NEW: never an existing file, like O_EXCL.
    const HANDLE file =
        CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    CloseHandle(file);
    (void)restrict_to_owner(path);
    return true;
}

}  // namespace navo::platform

#else

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#if defined(__APPLE__)
#  include <sys/random.h>  // getentropy; glibc and musl declare it in unistd.h
#endif
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace navo::platform {
namespace {

// Letters of the random suffix and its length: 62^12 names leave a guess no chance.
constexpr std::string_view suffix_alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr std::size_t suffix_length = 12;
constexpr int attempts = 100;
constexpr mode_t owner_only = S_IRUSR | S_IWUSR;

// A file descriptor closed when it goes out of scope, unless released to a stream.
class Descriptor {
public:
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor()
    {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    [[nodiscard]] bool valid() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] int get() const noexcept { return descriptor_; }
    int release() noexcept
    {
        const int descriptor = descriptor_;
        descriptor_ = -1;
        return descriptor;
    }

private:
    int descriptor_;
};

#if defined(P_tmpdir)
constexpr const char *system_temp_directory = P_tmpdir;
#else
constexpr const char *system_temp_directory = "/tmp";
#endif

// TMPDIR when it names something, else the system's directory.
std::string_view temp_directory() noexcept
{
    const char *directory = std::getenv("TMPDIR");
    return directory != nullptr && directory[0] != '\0' ? directory : system_temp_directory;
}

// Random bytes from the kernel, or false. No fallback: a name that could be guessed is no spool
// file name, so without randomness no spool file is made (the caller reports the failure).
bool fill_random(std::span<unsigned char> bytes) noexcept
{
    return ::getentropy(bytes.data(), bytes.size()) == 0;
}

}  // namespace

bool create_temp_file(std::span<char> out) noexcept
{
    if (out.empty())
        return false;
    out[0] = '\0';
    std::string_view directory = temp_directory();
    while (directory.size() > 1 && directory.back() == '/')
        directory.remove_suffix(1);
    const std::string_view prefix = temp_prefix;
    if (directory.size() + 1 + prefix.size() + suffix_length + 1 > out.size())
        return false;
    for (int attempt = 0; attempt < attempts; attempt++) {
        char *cursor = std::copy(directory.begin(), directory.end(), out.data());
        if (directory.empty() || directory.back() != '/')
            *cursor++ = '/';
        cursor = std::copy(prefix.begin(), prefix.end(), cursor);
        unsigned char random[suffix_length];
        if (!fill_random(random))
            break;
        for (const unsigned char byte : random)
            *cursor++ = suffix_alphabet[byte % suffix_alphabet.size()];
        *cursor = '\0';
        // O_EXCL makes the creation itself the uniqueness test: no race with another process.
        const Descriptor created(::open(out.data(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, owner_only));
        if (created.valid())
            return true;
        if (errno != EEXIST)
            break;
    }
    out[0] = '\0';
    return false;
}

File open_temp_file(const char *path) noexcept
{
    Descriptor opened(::open(path, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (!opened.valid())
        return File();
    File file(fdopen(opened.get(), "r+b"));
    if (file)
        opened.release();
    return file;
}

bool recreate_temp_file(const char *path) noexcept
{
    if (path == nullptr)
        return false;
    // O_EXCL never takes over what stands at the path, and with O_CREAT follows no link.
    const Descriptor created(::open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, owner_only));
    return created.valid();
}

}  // namespace navo::platform

#endif
