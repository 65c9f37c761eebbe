#pragma once

#include "plugin/VPA2Host.h"

/**
 * The audio side this host publishes. The host has nothing for a library to ask for, so every
 * operation answers negatively; the one text it gives is its own name.
 */
class AudioFxKV3HostAudioDummy : public NV::VPA2::HostAudio
{
public:
    /** The name slot 15 hands out. */
    static constexpr const char* kName = "KV3HOST_HOSTAUDIO_DUMMY";

    bool slot1(const epiText&, std::int32_t) override { return false; }
    bool slot2(const epiText&, std::int32_t) override { return false; }
    bool slot3(std::int32_t) override { return false; }
    bool slot4(std::int32_t) override { return false; }
    bool slot5(const epiText&, std::int32_t, std::int32_t) override { return false; }
    bool slot6(const epiText&, std::int32_t) override { return false; }
    bool slot7() override { return false; }
    bool slot8() override { return false; }
    bool slot9() override { return false; }
    void slot10() override {}
    void slot11(std::int32_t) override {}
    bool slot12() override { return false; }
    void slot13() override {}
    std::int32_t slot14() override { return 1; }
    bool slot15(epiText& text, std::int32_t) override
    {
        text = kName;
        return true;
    }
    bool slot16() override { return false; }
    std::int32_t slot17(std::int32_t) override { return 0; }
    bool slot18(std::int32_t, std::int32_t, epiText&) override { return false; }
    std::int32_t slot19(std::int32_t) override { return 0; }
    bool slot20(std::int32_t, std::int32_t, epiText&) override { return false; }
    std::int32_t slot21() override { return 0; }
    bool slot22(std::int32_t, std::int32_t&) override { return false; }
    std::int32_t slot23() override { return 0; }
    bool slot24(std::int32_t, std::int32_t&) override { return false; }
    std::int32_t slot25(std::int32_t) override { return 0; }
    bool slot26(std::int32_t, std::int32_t, epiText&) override { return false; }
    bool slot27(std::int32_t) override { return false; }
    bool slot28(epiText&) override { return false; }
    bool slot29(std::int32_t, epiText&) override { return false; }
    bool slot30(std::int32_t&) override { return false; }
    bool slot31(std::int32_t&) override { return false; }
    bool slot32(std::int32_t, std::int32_t, epiText&) override { return false; }
    bool slot33(std::int32_t, epiText&) override { return false; }
    bool slot34() override { return false; }
    bool slot35(std::int32_t, std::int32_t&) override { return false; }
    void slot36(std::int32_t) override {}
    float slot37() override { return 0.0f; }
    void slot38(std::int32_t) override {}
};
