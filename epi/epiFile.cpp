#include "epi/epiFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

epiFile::~epiFile()
{
    epiFile::close();
}

bool epiFile::open(const epiPath& path, int32_t flags, int32_t, int32_t)
{
    if (handle_ >= 0 || path.isEmpty())
        return false;
    const epiText native = path.toNativeText();
    int mode = O_RDONLY;
    if ((flags & kWrite) != 0)
    {
        mode = O_RDWR;
        if ((flags & kMustExist) == 0)
            mode |= O_CREAT;
        // "Deleted first" is an emptying at open: a file that may not be written stays as it is,
        // where unlinking it would have needed only the folder's permission.
        if ((flags & kDeleteFirst) != 0)
            mode |= O_TRUNC;
    }
    int fd;
    do
    {
        fd = ::open(native.cstr(), mode | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return false;
    // Only regular files are files here: a folder opens for reading on Linux but is no file. Sizes
    // and positions are 32-bit, so a file past 4 GB is refused rather than read wrongly.
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > off_t(UINT32_MAX))
    {
        ::close(fd);
        return false;
    }
    handle_ = fd;
    return true;
}

bool epiFile::close()
{
    if (handle_ < 0)
        return false;
    // The end of the file is set at the present position, so that a file rewritten shorter loses
    // its old tail. On a file opened for reading this fails harmlessly.
    const off_t position = ::lseek(handle_, 0, SEEK_CUR);
    if (position >= 0)
    {
        const int flags = ::fcntl(handle_, F_GETFL);
        if (flags >= 0 && (flags & O_ACCMODE) != O_RDONLY)
        {
            if (::ftruncate(handle_, position) != 0)
            {
                // Nothing to do: the bytes written are in the file; only the tail stays.
            }
        }
    }
    ::close(handle_);
    handle_ = -1;
    return true;
}

namespace
{

/**
 * Moves length bytes between the file and buffer with io (::read or ::write), going on after an
 * interruption or a short count. With outCount the answer is whether anything moved, without it
 * whether everything did.
 */
template <typename Byte, typename Io>
bool transfer(int handle, Byte* buffer, int32_t length, int32_t* outCount, Io io)
{
    if (outCount != nullptr)
        *outCount = 0;
    if (handle < 0 || length < 0)
        return false;
    if (length == 0)
        return true;
    if (buffer == nullptr)
        return false;
    int32_t done = 0;
    while (done < length)
    {
        const ssize_t n = io(handle, buffer + done, size_t(length - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += int32_t(n);
    }
    if (outCount != nullptr)
    {
        *outCount = done;
        return done != 0;
    }
    return done == length;
}

} // namespace

bool epiFile::read(void* buffer, int32_t length, int32_t* outCount)
{
    return transfer(handle_, static_cast<uint8_t*>(buffer), length, outCount, ::read);
}

bool epiFile::write(const void* buffer, int32_t length, int32_t* outCount)
{
    return transfer(handle_, static_cast<const uint8_t*>(buffer), length, outCount, ::write);
}

bool epiFile::seek(int32_t offset, int32_t whence)
{
    if (handle_ < 0)
        return false;
    int how = SEEK_SET;
    if (whence == 1)
        how = SEEK_CUR;
    else if (whence == 2)
        how = SEEK_END;
    else if (whence != 0)
        return false;
    return ::lseek(handle_, off_t(offset), how) >= 0;
}

uint32_t epiFile::tell() const
{
    if (handle_ < 0)
        return 0;
    const off_t position = ::lseek(handle_, 0, SEEK_CUR);
    return position < 0 ? 0u : uint32_t(position);
}

uint32_t epiFile::size() const
{
    if (handle_ < 0)
        return 0;
    struct stat info;
    if (::fstat(handle_, &info) != 0)
        return 0;
    return uint32_t(info.st_size);
}

bool epiFile::isOpen() const
{
    return handle_ >= 0;
}

epiRamFile::~epiRamFile()
{
    // Deliberately like close(): the buffer is forgotten, not freed. Whoever took it with
    // getBuffer() owns it from then on; freeBuffer() first releases memory made here.
    epiRamFile::close();
}

bool epiRamFile::open(const epiPath&, int32_t, int32_t, int32_t)
{
    // A memory file has no name to open: it is given its buffer.
    return false;
}

bool epiRamFile::close()
{
    const bool had = buffer_ != nullptr;
    // Deliberately no free: close() hands the buffer over to whoever took it with getBuffer().
    buffer_ = nullptr;
    bufferSize_ = 0;
    position_ = 0;
    borrowed_ = false;
    return had;
}

bool epiRamFile::read(void* buffer, int32_t length, int32_t* outCount)
{
    if (outCount != nullptr)
        *outCount = 0;
    if (buffer_ == nullptr || length < 0)
        return false;
    if (length == 0)
        return true;
    // What is left may be negative after an earlier read past the end: then nothing is copied.
    int64_t count = bufferSize_ - position_;
    if (count > length)
        count = length;
    if (count < 0)
        count = 0;
    if (buffer != nullptr && count > 0)
        std::memcpy(buffer, buffer_ + position_, size_t(count));
    // Deliberately the length asked for, not the count: a reader that skips by reading into null
    // moves on as far as it meant to, and tell() shows how far past the end it went.
    position_ += length;
    if (outCount != nullptr)
    {
        *outCount = int32_t(count);
        return count != 0;
    }
    return count == length;
}

bool epiRamFile::write(const void* buffer, int32_t length, int32_t* outCount)
{
    if (outCount != nullptr)
        *outCount = 0;
    if (buffer_ == nullptr || length < 0)
        return false;
    if (length == 0)
        return true;
    if (buffer == nullptr)
        return false;
    const int64_t end = position_ + length;
    if (end > bufferSize_)
    {
        // Growth leaves room for the next writes, so that a writer of many small atoms doesn't
        // reallocate each time.
        const int64_t newSize = end + kChunk;
        if (newSize > int64_t(UINT32_MAX))
            return false;
        uint8_t* grown;
        if (borrowed_)
        {
            grown = static_cast<uint8_t*>(std::malloc(size_t(newSize)));
            if (grown != nullptr)
                std::memcpy(grown, buffer_, size_t(bufferSize_));
        }
        else
        {
            grown = static_cast<uint8_t*>(std::realloc(buffer_, size_t(newSize)));
        }
        if (grown == nullptr)
            return false;
        std::memset(grown + bufferSize_, 0, size_t(newSize - bufferSize_));
        buffer_ = grown;
        bufferSize_ = newSize;
        borrowed_ = false;
    }
    std::memcpy(buffer_ + position_, buffer, size_t(length));
    position_ = end;
    if (outCount != nullptr)
        *outCount = length;
    return true;
}

bool epiRamFile::seek(int32_t offset, int32_t whence)
{
    if (buffer_ == nullptr)
        return false;
    int64_t target;
    if (whence == 1)
        target = position_ + offset;
    else if (whence == 2)
        target = bufferSize_ - offset; // deliberately backwards: memory files always counted so
    else
        target = offset;
    if (target < 0 || target > bufferSize_)
    {
        position_ = 0;
        return false;
    }
    position_ = target;
    return true;
}

uint32_t epiRamFile::tell() const
{
    return uint32_t(position_);
}

uint32_t epiRamFile::size() const
{
    return uint32_t(bufferSize_);
}

bool epiRamFile::isOpen() const
{
    return buffer_ != nullptr;
}

bool epiRamFile::setBuffer(void* buffer, uint32_t size)
{
    buffer_ = static_cast<uint8_t*>(buffer);
    bufferSize_ = buffer != nullptr ? size : 0;
    position_ = 0;
    borrowed_ = true;
    return buffer != nullptr;
}

bool epiRamFile::createBuffer()
{
    auto* made = static_cast<uint8_t*>(std::calloc(size_t(kChunk), 1));
    if (made == nullptr)
        return false;
    buffer_ = made;
    bufferSize_ = kChunk;
    position_ = 0;
    borrowed_ = false;
    return true;
}

bool epiRamFile::getBuffer(void** outBuffer, uint32_t* outPosition) const
{
    if (outBuffer != nullptr)
        *outBuffer = buffer_;
    if (outPosition != nullptr)
        *outPosition = uint32_t(position_);
    return buffer_ != nullptr;
}

void epiRamFile::freeBuffer()
{
    if (!borrowed_)
        std::free(buffer_);
    buffer_ = nullptr;
    bufferSize_ = 0;
    borrowed_ = false;
}
