#include "epi/epiAtomsFile.h"
#include "epi/epiFileDump.h"

bool epiFileDump::saveAtoms(epiAtomsFile* atoms)
{
    if (atoms == nullptr)
        return false;
    if (!atoms->writeU32(epiCode("size"), size()))
        return false;
    return atoms->writeAtom(epiCode("data"), data(), size());
}

bool epiFileDump::loadAtoms(epiAtomsFile* atoms)
{
    free();
    if (atoms == nullptr)
        return false;
    uint32_t length = 0;
    if (!atoms->readU32(epiCode("size"), length))
        return false;
    // A 'size' that promises more than the 'data' atom holds comes from a damaged file: refuse it
    // rather than allocate what the file claims.
    uint32_t body = 0;
    if (!atoms->peekSize(epiCode("data"), body) || body < length)
        return false;
    if (!allocate(length, true))
        return false;
    if (!atoms->readAtom(epiCode("data"), data(), length))
    {
        free();
        return false;
    }
    return true;
}
