#include "Files/FileDigest.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/evp.h>

#include "Support/FileDescriptor.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

WorkflowError notPlain()
{
    return WorkflowError::invalid(QStringLiteral("Solo se pueden transferir archivos normales"));
}

struct ContextDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

} // namespace

Result<QString> FileDigest::sha256(const QString& path)
{
    // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer forever.
    // O_NOATIME: checking a file is not using it, so its access time stays as it was (allowed
    // only to the file's owner; others read it plainly).
    const QByteArray native = Paths::encode(path);
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    FileDescriptor file(::open(native.constData(), flags | O_NOATIME));
    if (!file.isOpen() && errno == EPERM)
        file = FileDescriptor(::open(native.constData(), flags));
    if (!file.isOpen())
        return errno == ELOOP ? Result<QString>(notPlain()) : Result<QString>(SystemError::fromErrno(path));
    const int fd = file.get();
    struct stat st {};
    if (::fstat(fd, &st) != 0)
        return SystemError::fromErrno(path);
    if (!S_ISREG(st.st_mode))
        return notPlain();
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);

    const std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        return SystemError(ENOMEM, path);
    const std::unique_ptr<unsigned char[]> buffer(new unsigned char[chunkSize]);
    for (;;) {
        const ssize_t n = ::read(fd, buffer.get(), size_t(chunkSize));
        if (n == 0)
            break;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return SystemError::fromErrno(path);
        }
        EVP_DigestUpdate(context.get(), buffer.get(), size_t(n));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest, &length) != 1)
        return SystemError(EIO, path);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex());
}

} // namespace vantelor
