#pragma once

#include "epi/epiAtomsFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace epitest
{

inline std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeAll(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

inline int openDescriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return int(std::distance(descriptors, std::filesystem::directory_iterator()));
}

/** A fresh folder for each test, which must close every file it opens. */
class FileTest : public ::testing::Test
{
protected:
    void SetUp() override { descriptorsBefore_ = openDescriptors(); }
    void TearDown() override { EXPECT_EQ(openDescriptors(), descriptorsBefore_); }
    /** A name in the folder; at("") is the folder with the trailing '/' of the framework's folder paths. */
    std::string at(const std::string& name) const { return tmp_.file(name); }

    testsupport::TempFolder tmp_;
    int descriptorsBefore_ = 0;
};

/** Builds atoms files byte by byte, in either byte order, without the writer under test. */
class Builder
{
public:
    explicit Builder(bool bigEndian) : big_(bigEndian) {}

    /** The 12-byte head with the given words. */
    Builder& head(uint32_t magic = 0x61746D73, uint32_t zero = 0, uint32_t version = 1)
    {
        return word(magic).word(zero).word(version);
    }
    Builder& word(uint32_t w)
    {
        for (int i = 0; i < 4; ++i)
            bytes_.push_back(char((w >> (big_ ? 24 - 8 * i : 8 * i)) & 0xFF));
        return *this;
    }
    /** An atom of `body`, whose header may say another `size`. */
    Builder& atom(uint32_t tag, std::string_view body, uint32_t size = UINT32_MAX)
    {
        word(tag).word(size == UINT32_MAX ? uint32_t(body.size()) : size).word(0);
        bytes_.append(body);
        return *this;
    }
    Builder& u32(uint32_t tag, uint32_t value) { return word(tag).word(4).word(0).word(value); }
    const std::string& bytes() const { return bytes_; }

private:
    bool big_;
    std::string bytes_;
};

/** An atoms file over bytes in memory. The memory file outlives the atoms file that closes it. */
struct MemoryAtoms
{
    explicit MemoryAtoms(std::string content) : bytes(std::move(content))
    {
        ram.setBuffer(bytes.data(), uint32_t(bytes.size()));
    }
    bool attach() { return atoms.attach(&ram, true); }

    std::string bytes;
    epiRamFile ram;
    epiAtomsFile atoms;
};

} // namespace epitest
