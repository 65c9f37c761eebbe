#include "epi/ui/epiKeyboard.h"

void epiKeyboard::mouseMessage(uint32_t bits, uint32_t action)
{
    shift_ = (bits & kMouseShift) != 0;
    control_ = (bits & kMouseControl) != 0;
    left_ = (bits & kMouseLeft) != 0;
    right_ = (bits & kMouseRight) != 0;
    middle_ = (bits & kMouseMiddle) != 0;
    switch (action)
    {
    case epiCode("mLdn"):
    case epiCode("mLup"):
    case epiCode("mRdn"):
    case epiCode("mRup"):
    case epiCode("mCdn"):
    case epiCode("mCup"):
        mouseAction_ = action;
        break;
    default:
        mouseAction_ = 0;
        break;
    }
}

void epiKeyboard::setModifiers(bool shift, bool option, bool command, bool control)
{
    shift_ = shift;
    option_ = option;
    command_ = command;
    control_ = control;
}

int32_t epiKeyboard::keyOfVirtual(uint32_t virtualKey)
{
    switch (virtualKey)
    {
    case kVkPageUp:
        return kKeyPageUp;
    case kVkPageDown:
        return kKeyPageDown;
    case kVkHome:
        return kKeyHome;
    case kVkEnd:
        return kKeyEnd;
    case kVkLeft:
        return kKeyLeft;
    case kVkRight:
        return kKeyRight;
    case kVkUp:
        return kKeyUp;
    case kVkDown:
        return kKeyDown;
    case kVkDelete:
        return kKeyDelete;
    default:
        return 0;
    }
}

int32_t epiKeyboard::keyMessage(uint32_t scanCode, uint32_t virtualKey, KeyPhase phase)
{
    const bool remembered = scanCode < keyOfScanCode_.size();
    if (phase == KeyPhase::Up)
    {
        // The release answers the key its press gave, whatever the virtual key says now.
        if (remembered && keyOfScanCode_[scanCode] != 0)
        {
            virtualKey = keyOfScanCode_[scanCode];
            keyOfScanCode_[scanCode] = 0;
        }
    }
    else if (remembered && virtualKey <= 0xFF)
        keyOfScanCode_[scanCode] = uint8_t(virtualKey);
    code_ = keyOfVirtual(virtualKey);
    return code_;
}
