#pragma once

#include "epi/epiObject.h"

#include <array>
#include <cstdint>

/**
 * The state of the keyboard and mouse buttons as the last event left it, and the translation of
 * the platform's keys into the framework's key codes.
 *
 * Key codes: a character is its own code; the keys below have codes of their own. A press is
 * remembered under its scan code, so that the release reports the key that was pressed even when
 * the modifiers changed in between.
 */
class epiKeyboard : public epiApplicationObject
{
public:
    /** Virtual keys of the platform that mean something here. */
    static constexpr uint32_t kVkPageUp = 0x21;
    static constexpr uint32_t kVkPageDown = 0x22;
    static constexpr uint32_t kVkEnd = 0x23;
    static constexpr uint32_t kVkHome = 0x24;
    static constexpr uint32_t kVkLeft = 0x25;
    static constexpr uint32_t kVkUp = 0x26;
    static constexpr uint32_t kVkRight = 0x27;
    static constexpr uint32_t kVkDown = 0x28;
    static constexpr uint32_t kVkDelete = 0x2E;

    /** The framework's key codes of those keys. */
    static constexpr int32_t kKeyPageUp = 0x10000;
    static constexpr int32_t kKeyPageDown = 0x10001;
    static constexpr int32_t kKeyHome = 0x10002;
    static constexpr int32_t kKeyEnd = 0x10003;
    static constexpr int32_t kKeyLeft = 0x1C;
    static constexpr int32_t kKeyRight = 0x1D;
    static constexpr int32_t kKeyUp = 0x1E;
    static constexpr int32_t kKeyDown = 0x1F;
    static constexpr int32_t kKeyDelete = 8;

    /** Bits of a mouse message's state. */
    static constexpr uint32_t kMouseLeft = 1;
    static constexpr uint32_t kMouseRight = 2;
    static constexpr uint32_t kMouseShift = 4;
    static constexpr uint32_t kMouseControl = 8;
    static constexpr uint32_t kMouseMiddle = 16;

    /** How a key message reached us. */
    enum class KeyPhase
    {
        Down,   ///< a first press: keyDown()
        Repeat, ///< an auto-repeat: keyRepeat()
        Up      ///< the release: keyUp()
    };

    epiKeyboard() = default;
    ~epiKeyboard() override = default;

    virtual bool isShift() const { return shift_; }
    virtual bool isOption() const { return option_; }
    virtual bool isCommand() const { return command_; }
    virtual bool isControl() const { return control_; }
    /** Option, Command or Control is down. */
    virtual bool isAnyAccelerator() const { return option_ || command_ || control_; }
    virtual bool isLeftButton() const { return left_; }
    virtual bool isMiddleButton() const { return middle_; }
    virtual bool isRightButton() const { return right_; }

    /**
     * Takes the state of a mouse message: Shift and Control from `bits` (kMouse...), the three
     * buttons, and `action` ('mLdn', 'mLup', 'mRdn', 'mRup', 'mCdn', 'mCup', or 0 for a move).
     */
    void mouseMessage(uint32_t bits, uint32_t action);
    /** The action of the last mouse message. */
    uint32_t mouseAction() const { return mouseAction_; }

    /** Sets the modifiers from a key event; the platform calls this before the key itself. */
    void setModifiers(bool shift, bool option, bool command, bool control);

    /** The framework code of a virtual key, 0 for a key that isn't translated. */
    static int32_t keyOfVirtual(uint32_t virtualKey);

    /**
     * A key message: translates `virtualKey`, remembering it under `scanCode` on a press so that
     * the release answers the same key. @return the key code, 0 when the key is dropped
     */
    int32_t keyMessage(uint32_t scanCode, uint32_t virtualKey, KeyPhase phase);

    /** The last key code delivered. */
    int32_t code() const { return code_; }

    /** Whether the last press was the second of a double-click: the reset modifier. */
    bool isDoubleClick() const { return doubleClick_; }
    /** The platform flags each press. */
    void setDoubleClick(bool flag) { doubleClick_ = flag; }

private:
    bool shift_ = false;
    bool option_ = false;
    bool command_ = false;
    bool control_ = false;
    bool left_ = false;
    bool middle_ = false;
    bool right_ = false;
    bool doubleClick_ = false;
    uint32_t mouseAction_ = 0;
    int32_t code_ = 0;
    // The virtual key last pressed under each scan code; 0 when none.
    std::array<uint8_t, 255> keyOfScanCode_{};
};
