#include "app/kv3/Cli.h"
#include "dsp/AudioResampler_DSP.h"

#include <string>
#include <vector>

int main(int argc, char** argv)
{
    // Previews of files at another rate go through the quality resampler, as the tracks do.
    useQualityResamplerForPreviews();
    std::vector<std::string> args(argv + 1, argv + argc);
    return kv3cli::runMain(args, KV3_VERSION);
}
