#include "epi/epiResourcePack.h"
#include "epi/epiFileDump.h"

#include <algorithm>
#include <limits>

epiResourcePack::fileElem::fileElem(const epiText& name, uint32_t offset, uint32_t size)
    : epiPath(name), offset_(offset), size_(size)
{
}

epiResourcePack::~epiResourcePack()
{
    close();
}

void epiResourcePack::dropAtoms()
{
    if (ownsAtoms_)
        delete atoms_;
    atoms_ = nullptr;
    ownsAtoms_ = false;
    memory_.reset();
}

void epiResourcePack::close()
{
    if (atoms_ != nullptr)
        atoms_->close();
    entries_.clear();
    dropAtoms();
}

bool epiResourcePack::openFile(const epiPath& path)
{
    close();
    atoms_ = new epiAtomsFile();
    ownsAtoms_ = true;
    if (!atoms_->open(path, epiFile::kRead))
    {
        dropAtoms();
        return false;
    }
    return parse(nullptr);
}

bool epiResourcePack::openMemory(const void* data, uint32_t size)
{
    close();
    memory_ = std::make_unique<epiRamFile>();
    // The memory file's interface takes a writable pointer; a pack only ever reads through it.
    if (!memory_->setBuffer(const_cast<void*>(data), size))
    {
        memory_.reset();
        return false;
    }
    atoms_ = new epiAtomsFile();
    ownsAtoms_ = true;
    if (!atoms_->attach(memory_.get(), true))
    {
        dropAtoms();
        return false;
    }
    return parse(nullptr);
}

bool epiResourcePack::parse(epiAtomsFile* atoms)
{
    if (atoms != nullptr)
    {
        entries_.clear();
        if (atoms != atoms_)
            dropAtoms();
        atoms_ = atoms;
        ownsAtoms_ = false;
    }
    if (atoms_ == nullptr)
        return false;

    uint32_t version = 0;
    uint32_t count = 0;
    bool ok =
        atoms_->readU32(kTagVersion, version) && version == kPackVersion && atoms_->readU32(kTagCount, count);
    // Each entry costs three headers, so a count that promises more than the stream can hold
    // ends at the first missing atom; nothing is reserved for it in advance.
    for (uint32_t i = 0; ok && i < count; ++i)
    {
        epiText name;
        uint32_t declaredSize = 0;
        uint32_t dataSize = 0;
        uint32_t position = 0;
        ok = atoms_->readText(kTagName, name) && atoms_->readU32(kTagSize, declaredSize) &&
             atoms_->skipAtom(kTagData, dataSize, position);
        // The 'Size' atom is read but the 'Data' header decides: it is what the bytes really are.
        if (ok)
            entries_.push_back(std::make_unique<fileElem>(name, position, dataSize));
    }
    if (!ok)
    {
        entries_.clear();
        dropAtoms();
    }
    return ok;
}

bool epiResourcePack::find(const char* name, const fileElem** elem) const
{
    return find(epiText(name), elem);
}

bool epiResourcePack::find(const epiText& name, const fileElem** elem) const
{
    if (elem != nullptr)
        *elem = nullptr;
    if (atoms_ == nullptr)
        return false;
    epiText wanted;
    if (!name.startsWith("/"))
        wanted.push_back('/');
    wanted.appendText(&name);
    // A linear scan in file order: a pack holds a few hundred entries at most.
    for (const auto& entry : entries_)
    {
        if (entry->equalsText(&wanted))
        {
            if (elem != nullptr)
                *elem = entry.get();
            return true;
        }
    }
    return false;
}

const epiResourcePack::fileElem* epiResourcePack::elemAt(int32_t index) const
{
    if (index < 0 || index >= count())
        return nullptr;
    return entries_[size_t(index)].get();
}

bool epiResourcePack::nameAt(int32_t index, epiText* dest) const
{
    const fileElem* elem = elemAt(index);
    if (elem == nullptr || dest == nullptr)
        return false;
    dest->assignText(elem);
    return true;
}

bool epiResourcePack::readAt(const fileElem& elem, void* target)
{
    epiFile* file = atoms_ != nullptr ? atoms_->fileOf() : nullptr;
    if (file == nullptr || elem.offset() > uint32_t(std::numeric_limits<int32_t>::max()) ||
        !file->seek(int32_t(elem.offset()), 0))
        return false;
    auto* out = static_cast<uint8_t*>(target);
    uint32_t left = elem.entrySize();
    while (left > 0)
    {
        const uint32_t n = std::min<uint32_t>(left, 1u << 30);
        if (!file->read(out, int32_t(n)))
            return false;
        out += n;
        left -= n;
    }
    return true;
}

bool epiResourcePack::loadText(const char* name, epiText& dest)
{
    dest.clear();
    const fileElem* elem = nullptr;
    if (!find(name, &elem))
        return false;
    dest.assign(elem->entrySize(), '\0');
    if (!readAt(*elem, dest.data()))
    {
        dest.clear();
        return false;
    }
    return true;
}

bool epiResourcePack::load(const char* name, epiFileDump& dest)
{
    dest.free();
    const fileElem* elem = nullptr;
    if (!find(name, &elem) || !dest.allocate(elem->entrySize(), true))
        return false;
    if (elem->entrySize() > 0 && !readAt(*elem, dest.data()))
    {
        dest.free();
        return false;
    }
    return true;
}
