#pragma once

#include <string>

/**
 * A loaded dynamic library, closed when this object goes. The platform's loader stands behind it
 * (see the platform folders); this header is all the rest of the host sees of it.
 */
class DynamicLibrary
{
public:
    DynamicLibrary() = default;
    DynamicLibrary(const DynamicLibrary&) = delete;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete;
    ~DynamicLibrary() { close(); }

    /**
     * Loads the library at `path`, resolving all its symbols now. Closes one loaded before.
     * @returns false with `error()` set to the loader's own words
     */
    bool open(const char* path);
    /** The address of an exported symbol, or null. */
    void* symbol(const char* name) const;
    void close();
    bool isOpen() const { return handle_ != nullptr; }
    const std::string& error() const { return error_; }

    /** The folder of the running program, without a trailing separator; empty when unknown. */
    static std::string programFolder();

private:
    void* handle_ = nullptr;
    std::string error_;
};
