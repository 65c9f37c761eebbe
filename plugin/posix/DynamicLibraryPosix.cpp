// The dynamic library loader on POSIX systems: dlopen and its friends.

#include "plugin/DynamicLibrary.h"

#include <dlfcn.h>
#include <filesystem>
#include <system_error>

bool DynamicLibrary::open(const char* path)
{
    close();
    error_.clear();
    // RTLD_LOCAL: two libraries may export the same names, and each keeps its own.
    handle_ = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr)
    {
        const char* detail = ::dlerror();
        error_ = detail != nullptr ? detail : "unknown error";
        return false;
    }
    return true;
}

void* DynamicLibrary::symbol(const char* name) const
{
    return handle_ != nullptr ? ::dlsym(handle_, name) : nullptr;
}

void DynamicLibrary::close()
{
    if (handle_ != nullptr)
    {
        ::dlclose(handle_);
        handle_ = nullptr;
    }
}

std::string DynamicLibrary::programFolder()
{
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string() : exe.parent_path().string();
}
