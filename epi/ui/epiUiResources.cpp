#include "epi/ui/epiUiResources.h"

namespace
{

/** What the factory makes for `family`, `kind` when it is a T; else null, and nothing is kept. */
template <typename T> T* madeAs(epiApplicationObject& asker, uint32_t family, uint32_t kind)
{
    epiObject* made = asker.newObject(family, kind, 0);
    T* typed = dynamic_cast<T*>(made);
    if (typed == nullptr)
        delete made;
    return typed;
}

} // namespace

epiUiResources::~epiUiResources()
{
    delete casts_;
}

bool epiUiResources::start()
{
    if (!epiResources::start())
        return false;
    fonts_.inheritOwner(this);
    fonts_.setResources(this);
    if (casts_ == nullptr)
    {
        casts_ = madeAs<epiBitmapCasts>(*this, epiCode("Appl"), epiCode("Cast"));
        if (casts_ == nullptr)
            casts_ = new epiBitmapCasts();
    }
    casts_->inheritOwner(this);
    casts_->setResources(this);
    return casts_->start();
}

void epiUiResources::stop()
{
    closeMedia();
    if (casts_ != nullptr)
        casts_->stop();
    fonts_.stop();
    epiResources::stop();
}

epiBitmap* epiUiResources::newBitmap()
{
    if (epiBitmap* bitmap = madeAs<epiBitmap>(*this, epiCode("GrUi"), epiCode("iBmp")))
        return bitmap;
    return new epiBitmap();
}

void epiUiResources::purgeCast(const epiText* name)
{
    if (casts_ != nullptr && name != nullptr)
        casts_->purge(name->c_str());
}

void epiUiResources::purgeAllCasts()
{
    if (casts_ != nullptr)
        casts_->purgeAll();
}

void epiUiResources::castsIdle()
{
    if (casts_ != nullptr)
        casts_->flush();
}
