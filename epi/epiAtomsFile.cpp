#include "epi/epiAtomsFile.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace
{

uint32_t byteSwap(uint32_t w)
{
    return (w >> 24) | ((w >> 8) & 0x0000FF00u) | ((w << 8) & 0x00FF0000u) | (w << 24);
}

// epiFile moves at most a 32-bit signed count at a time.
constexpr uint64_t kMaxTransfer = 1u << 30;

} // namespace

epiAtomsFile::~epiAtomsFile()
{
    // A file made here is closed by its own destructor; a lent one is left to its lender, who may
    // still want what was written into it.
    dropFile();
}

void epiAtomsFile::dropFile()
{
    if (ownsFile_)
        delete file_;
    file_ = nullptr;
    ownsFile_ = false;
}

uint32_t epiAtomsFile::order(uint32_t word) const
{
    return swapped_ ? byteSwap(word) : word;
}

bool epiAtomsFile::attach(epiFile* file, bool forRead)
{
    swapped_ = false;
    if (file != nullptr && file != file_)
    {
        dropFile();
        file_ = file;
    }
    if (file_ == nullptr)
        return false;

    if (forRead)
    {
        uint32_t head[3] = {};
        bool ok = readBytes(head, sizeof head);
        if (ok && head[0] != kMagic)
        {
            for (uint32_t& w : head)
                w = byteSwap(w);
            swapped_ = head[0] == kMagic;
            ok = swapped_;
        }
        ok = ok && head[1] == 0 && head[2] == kFormatVersion;
        if (!ok)
        {
            // epiFile::close() cuts the file at the present position: go to the end first, so
            // that a file opened for writing as well loses nothing by a failed attach.
            file_->seek(0, 2);
            file_->close();
            swapped_ = false;
        }
        return ok;
    }

    const uint32_t head[3] = {kMagic, 0, kFormatVersion};
    if (!writeWords(head, 3))
    {
        file_->close();
        return false;
    }
    return true;
}

bool epiAtomsFile::open(const epiPath& path, int32_t flags, int32_t a, int32_t b)
{
    if (file_ != nullptr && file_->isOpen())
        return false;
    if (file_ == nullptr)
    {
        file_ = new epiFile();
        ownsFile_ = true;
    }
    swapped_ = false;
    if (!file_->open(path, flags, a, b))
        return false;
    path_ = path;
    if (!attach(file_, (flags & epiFile::kRead) != 0))
    {
        file_->close();
        return false;
    }
    return true;
}

bool epiAtomsFile::close()
{
    if (file_ == nullptr)
        return false;
    return file_->close();
}

bool epiAtomsFile::readBytes(void* target, uint64_t length)
{
    auto* out = static_cast<uint8_t*>(target);
    while (length > 0)
    {
        const uint64_t n = std::min(length, kMaxTransfer);
        if (!file_->read(out, int32_t(n)))
            return false;
        out += n;
        length -= n;
    }
    return true;
}

bool epiAtomsFile::writeBytes(const void* source, uint64_t length)
{
    const auto* in = static_cast<const uint8_t*>(source);
    while (length > 0)
    {
        const uint64_t n = std::min(length, kMaxTransfer);
        if (!file_->write(in, int32_t(n)))
            return false;
        in += n;
        length -= n;
    }
    return true;
}

bool epiAtomsFile::writeWords(const uint32_t* words, int32_t count)
{
    return writeBytes(words, uint64_t(count) * 4);
}

bool epiAtomsFile::seekTo(uint64_t position)
{
    if (position > uint64_t(std::numeric_limits<int32_t>::max()))
        return false;
    return file_->seek(int32_t(position), 0);
}

uint64_t epiAtomsFile::streamSize() const
{
    return file_->size();
}

bool epiAtomsFile::readHeader(Header& header)
{
    uint32_t words[3] = {};
    if (!readBytes(words, sizeof words))
        return false;
    header.tag = order(words[0]);
    header.size = order(words[1]);
    return true;
}

bool epiAtomsFile::writeAtom(uint32_t tag, const void* data, uint32_t size)
{
    if (file_ == nullptr || (data == nullptr && size != 0))
        return false;
    const uint32_t header[3] = {order(tag), order(size), 0};
    return writeWords(header, 3) && writeBytes(data, size);
}

bool epiAtomsFile::writeU32(uint32_t tag, uint32_t value)
{
    const uint32_t stored = order(value);
    return writeAtom(tag, &stored, 4);
}

bool epiAtomsFile::writeU32Ref(uint32_t tag, const uint32_t* value)
{
    return value != nullptr && writeU32(tag, *value);
}

bool epiAtomsFile::writeU32Ref(uint32_t tag, const float* value)
{
    if (value == nullptr)
        return false;
    uint32_t bits = 0;
    std::memcpy(&bits, value, 4);
    return writeU32(tag, bits);
}

bool epiAtomsFile::writeByte(uint32_t tag, uint8_t value)
{
    return writeAtom(tag, &value, 1);
}

bool epiAtomsFile::writeText(uint32_t tag, const epiText* text)
{
    if (text == nullptr || text->size() > std::numeric_limits<uint32_t>::max())
        return false;
    return writeAtom(tag, text->data(), uint32_t(text->size()));
}

bool epiAtomsFile::readAtom(uint32_t tag, void* target, uint32_t size)
{
    bool ok = false;
    uint32_t start = 0;
    if (file_ != nullptr && (target != nullptr || size == 0))
    {
        start = file_->tell();
        Header header{};
        // A body that runs past the end of the stream can't be read whole: the atom is damaged,
        // and the check keeps the reads below inside what is there.
        ok = readHeader(header) && header.tag == tag &&
             uint64_t(start) + kHeaderSize + header.size <= streamSize();
        if (ok)
        {
            auto* out = static_cast<uint8_t*>(target);
            if (header.size >= size)
            {
                ok = readBytes(out, size);
                if (ok && header.size > size)
                    ok = seekTo(uint64_t(start) + kHeaderSize + header.size);
            }
            else
            {
                ok = readBytes(out, header.size);
                std::memset(out + header.size, 0, size - header.size);
            }
        }
        if (!ok)
            seekTo(start);
    }
    if (!ok && clearOnFail_ && target != nullptr)
        std::memset(target, 0, size);
    return ok;
}

bool epiAtomsFile::readU32(uint32_t tag, uint32_t& value)
{
    uint32_t stored = 0;
    const bool ok = readAtom(tag, &stored, 4);
    if (ok || clearOnFail_)
        value = order(stored);
    return ok;
}

bool epiAtomsFile::readU32(uint32_t tag, int32_t& value)
{
    uint32_t bits = uint32_t(value);
    const bool ok = readU32(tag, bits);
    value = int32_t(bits);
    return ok;
}

bool epiAtomsFile::readU32(uint32_t tag, float& value)
{
    uint32_t bits = 0;
    std::memcpy(&bits, &value, 4);
    const bool ok = readU32(tag, bits);
    std::memcpy(&value, &bits, 4);
    return ok;
}

bool epiAtomsFile::readByte(uint32_t tag, uint8_t& value)
{
    uint8_t stored = 0;
    const bool ok = readAtom(tag, &stored, 1);
    if (ok || clearOnFail_)
        value = stored;
    return ok;
}

bool epiAtomsFile::readText(uint32_t tag, epiText& dest)
{
    uint32_t size = 0;
    if (!peekSize(tag, size))
        return false;
    // A size beyond the stream's end can't be read; refuse before making room for it.
    const uint64_t start = file_->tell();
    bool ok = start + kHeaderSize + size <= streamSize();
    if (ok)
    {
        dest.assign(size, '\0');
        ok = readAtom(tag, dest.data(), size);
    }
    if (!ok && clearOnFail_)
        dest.clear();
    return ok;
}

bool epiAtomsFile::peekSize(uint32_t tag, uint32_t& size)
{
    size = 0;
    if (file_ == nullptr)
        return false;
    const uint32_t start = file_->tell();
    Header header{};
    const bool ok = readHeader(header);
    seekTo(start);
    if (ok && header.tag == tag)
        size = header.size;
    return ok;
}

bool epiAtomsFile::skipAtom(uint32_t tag, uint32_t& size, uint32_t& position)
{
    size = 0;
    position = 0;
    if (file_ == nullptr)
        return false;
    const uint32_t start = file_->tell();
    Header header{};
    const uint64_t body = uint64_t(start) + kHeaderSize;
    if (readHeader(header) && header.tag == tag && body + header.size <= streamSize() &&
        seekTo(body + header.size))
    {
        size = header.size;
        position = uint32_t(body);
        return true;
    }
    seekTo(start);
    return false;
}
