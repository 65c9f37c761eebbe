#include "epi/epiFileDump.h"

#include "epi/epiFile.h"

#include <cstdlib>
#include <cstring>

epiFileDump::~epiFileDump()
{
    epiFileDump::free();
}

bool epiFileDump::saveFile(const epiPath& path, const void* data, uint32_t length, int32_t a, int32_t b)
{
    if (data == nullptr)
    {
        data = data_;
        length = size();
    }
    if (data == nullptr && length != 0)
        return false;
    if (length > uint32_t(INT32_MAX))
        return false;
    epiFile file;
    if (!file.open(path, epiFile::kWrite, a, b))
        return false;
    const bool written = file.write(data, int32_t(length));
    // close() cuts the file at the position, so an older, longer file loses its tail.
    file.close();
    return written;
}

bool epiFileDump::loadFile(const epiPath& path)
{
    free();
    epiFile file;
    if (!file.open(path, epiFile::kRead))
        return false;
    const uint32_t length = file.size();
    if (length > uint32_t(INT32_MAX) || !allocate(length, true))
        return false;
    if (!file.read(data_, int32_t(length)))
    {
        free();
        return false;
    }
    return true;
}

uint8_t* epiFileDump::data() const
{
    return data_;
}

uint32_t epiFileDump::size() const
{
    return data_ != nullptr ? size_ : 0;
}

void epiFileDump::attach(void* bytes, uint32_t length, bool owned)
{
    if (bytes == data_)
    {
        size_ = length;
        owned_ = owned;
        return;
    }
    free();
    data_ = static_cast<uint8_t*>(bytes);
    size_ = bytes != nullptr ? length : 0;
    owned_ = owned;
}

bool epiFileDump::copyFrom(const epiFileDump& dump)
{
    if (&dump == this)
        return data_ != nullptr;
    return copyBytes(dump.data(), dump.size());
}

bool epiFileDump::copyBytes(const void* bytes, uint32_t length)
{
    if (bytes == nullptr)
        return false;
    // Copy first: `bytes` may point into the present block.
    auto* copy = static_cast<uint8_t*>(std::malloc(length != 0 ? length : 1));
    if (copy == nullptr)
        return false;
    std::memcpy(copy, bytes, length);
    free();
    data_ = copy;
    size_ = length;
    owned_ = true;
    return true;
}

bool epiFileDump::allocate(uint32_t length, bool owned)
{
    free();
    // One byte at least, so that an empty file still has a block and data() tells it from none.
    data_ = static_cast<uint8_t*>(std::calloc(length != 0 ? length : 1, 1));
    if (data_ == nullptr)
        return false;
    size_ = length;
    owned_ = owned;
    return true;
}

bool epiFileDump::differs(const epiFileDump& other) const
{
    if (size() != other.size())
        return true;
    if (size() == 0)
        return false;
    return std::memcmp(data_, other.data_, size_) != 0;
}

void epiFileDump::free()
{
    if (owned_)
        std::free(data_);
    data_ = nullptr;
    size_ = 0;
    owned_ = false;
}

bool epiFileDump::readAt(uint32_t offset, void* target, uint32_t length) const
{
    if (data_ == nullptr || target == nullptr || uint64_t(offset) + length > size_)
        return false;
    std::memcpy(target, data_ + offset, length);
    return true;
}

bool epiFileDump::writeAt(uint32_t offset, const void* source, uint32_t length)
{
    if (data_ == nullptr || source == nullptr || uint64_t(offset) + length > size_)
        return false;
    std::memcpy(data_ + offset, source, length);
    return true;
}
