#pragma once

namespace Korvalind3Host
{

/**
 * What the device front tells the interface, always on the interface thread (from `poll`,
 * `startHardware`, `stopHardware`, `waitForHardware` or `setDelegate`).
 */
class AudioHardwareDelegate
{
public:
    virtual ~AudioHardwareDelegate() = default;
    /** The device was stopped on purpose, or a restart has begun. */
    virtual void hardwareStopped() = 0;
    /** An attempt to start succeeded after waiting. */
    virtual void hardwareResumed() = 0;
    /** An attempt failed, or waiting has begun; the next try is due in a second. */
    virtual void hardwareWaiting() = 0;
    /** The device came up, but not at the project's rate. */
    virtual void hardwareRateNotSupported() = 0;
    /** The fifth entry into the retry state in one run of failures: the user should be told. */
    virtual void hardwareLost() = 0;
};

} // namespace Korvalind3Host
