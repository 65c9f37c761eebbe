#include "tools/packer/PackBuilder.h"

#include "epi/epiAtomsFile.h"
#include "epi/epiResourcePack.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <limits>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace
{

struct Source
{
    std::string name; // "/folder/file", as stored
    fs::path file;
};

bool readFile(const fs::path& path, std::string& bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// Removes the temporary output unless the build completed.
class TempOutput
{
public:
    explicit TempOutput(fs::path path) : path_(std::move(path)) {}
    ~TempOutput()
    {
        if (!kept_)
        {
            std::error_code ec;
            fs::remove(path_, ec);
        }
    }
    TempOutput(const TempOutput&) = delete;
    TempOutput& operator=(const TempOutput&) = delete;
    const fs::path& path() const { return path_; }
    void keep() { kept_ = true; }

private:
    fs::path path_;
    bool kept_ = false;
};

// The path in quotes. Built by appending: GCC 12 warns wrongly about "'" + string at -O3.
std::string quoted(const fs::path& path)
{
    std::string text(1, '\'');
    text += path.string();
    text += '\'';
    return text;
}

bool failWith(std::string& error, std::string text)
{
    error = std::move(text);
    return false;
}

} // namespace

bool PackBuilder::nameBefore(const std::string& a, const std::string& b)
{
    auto fold = [](unsigned char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : char(c); };
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i)
    {
        const unsigned char x = (unsigned char)fold((unsigned char)a[i]);
        const unsigned char y = (unsigned char)fold((unsigned char)b[i]);
        if (x != y)
            return x < y;
    }
    if (a.size() != b.size())
        return a.size() < b.size();
    return a < b;
}

bool PackBuilder::build(const fs::path& dir, const fs::path& out, std::string& error)
{
    std::error_code ec;
    if (!fs::is_directory(dir, ec))
        return failWith(error, quoted(dir) + " is not a folder");
    if (fs::is_directory(out, ec))
        return failWith(error, quoted(out) + " is a folder, not a pack file");

    std::vector<Source> sources;
    fs::recursive_directory_iterator it(dir, ec);
    if (ec)
        return failWith(error, "cannot list " + quoted(dir) + ": " + ec.message());
    for (const fs::recursive_directory_iterator end; it != end; it.increment(ec))
    {
        if (ec)
            return failWith(error, "cannot list " + quoted(dir) + ": " + ec.message());
        if (!it->is_regular_file(ec))
            continue;
        // A pack written into the folder that it packs must not end up inside itself.
        if (fs::exists(out, ec) && fs::equivalent(it->path(), out, ec))
            continue;
        const std::string relative = it->path().lexically_relative(dir).generic_string();
        sources.push_back({"/" + relative, it->path()});
    }
    if (ec)
        return failWith(error, "cannot list " + quoted(dir) + ": " + ec.message());
    std::sort(sources.begin(), sources.end(),
              [](const Source& a, const Source& b) { return nameBefore(a.name, b.name); });

    // Offsets and sizes are 32-bit, and the reader seeks with a signed 32-bit position.
    constexpr uint64_t kLimit = uint64_t(std::numeric_limits<int32_t>::max());
    constexpr uint64_t kHeader = epiAtomsFile::kHeaderSize;
    uint64_t total = epiAtomsFile::kHeadSize + 3 * (kHeader + 4);
    for (const Source& s : sources)
    {
        const uint64_t size = fs::file_size(s.file, ec);
        if (ec)
            return failWith(error, "cannot read " + quoted(s.file) + ": " + ec.message());
        total += 3 * kHeader + s.name.size() + 4 + size;
    }
    if (total > kLimit)
        return failWith(error, quoted(dir) + " holds too much for one pack (" + std::to_string(total) +
                                   " bytes, at most " + std::to_string(kLimit) + ")");

    TempOutput temp(out.string() + ".part-" + std::to_string(::getpid()));
    const std::string outError = "cannot write " + quoted(out);
    epiAtomsFile atoms;
    if (!atoms.open(epiPath(temp.path().string()), epiFile::kWrite | epiFile::kDeleteFirst))
        return failWith(error, outError);
    bool ok = atoms.writeU32(epiResourcePack::kTagVersion, epiResourcePack::kPackVersion) &&
              atoms.writeU32(epiResourcePack::kTagCount, uint32_t(sources.size()));
    std::string bytes;
    for (const Source& s : sources)
    {
        if (!ok)
            break;
        if (!readFile(s.file, bytes))
            return failWith(error, "cannot read " + quoted(s.file));
        const epiText name(s.name);
        ok = atoms.writeText(epiResourcePack::kTagName, &name) &&
             atoms.writeU32(epiResourcePack::kTagSize, uint32_t(bytes.size())) &&
             atoms.writeAtom(epiResourcePack::kTagData, bytes.data(), uint32_t(bytes.size()));
    }
    ok = ok && atoms.writeU32(epiResourcePack::kTagEnd, 0);
    // The file is cut at the position on close: the position stands at the end here.
    ok = atoms.close() && ok;
    if (!ok)
        return failWith(error, outError);
    fs::rename(temp.path(), out, ec);
    if (ec)
        return failWith(error, outError + ": " + ec.message());
    temp.keep();
    return true;
}
