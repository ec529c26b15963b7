// The converter by itself: tones through every format, rate and channel count.
#include "control/audio/audioresample.h"

#include "tests/unit/capture/output.h"

#include <cmath>
#include <complex>
#include <cstring>

namespace {

constexpr double tone_Hz = 1000.0;
constexpr double amplitude = 0.5;  // of full scale
constexpr std::size_t chunk = AudioResample::chunkFrames;

audioInfo info(snd_pcm_format_t format, unsigned rate, unsigned channels) {
    return {"", format, rate, static_cast<std::uint16_t>(channels)};
}

// Signed little-endian samples of any width, floats, or unsigned bytes.
void putSample(std::vector<unsigned char>& out, snd_pcm_format_t format, double value) {
    const auto put = [&](auto sample) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&sample);
        out.insert(out.end(), bytes, bytes + sizeof sample);
    };
    switch (format) {
        case SND_PCM_FORMAT_U8:
            put(static_cast<std::uint8_t>(std::lround(128 + value * 127)));
            break;
        case SND_PCM_FORMAT_S24_LE:
            put(static_cast<std::int32_t>(std::lround(value * 8388607)));
            break;
        case SND_PCM_FORMAT_S32_LE:
            put(static_cast<std::int32_t>(std::lround(value * 2147483000.0)));
            break;
        case SND_PCM_FORMAT_FLOAT_LE:
            put(static_cast<float>(value));
            break;
        default:
            put(static_cast<std::int16_t>(std::lround(value * 32767)));
    }
}

// One chunk of the tone, the same in the first two channels, something else in the others.
std::vector<unsigned char> toneChunk(const audioInfo& format, std::size_t number) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < chunk; ++i) {
        const double time = static_cast<double>(number * chunk + i) / format.rate;
        for (unsigned channel = 0; channel < format.channels; ++channel) {
            const double value =
                channel < 2 ? amplitude * std::sin(2 * M_PI * tone_Hz * time) : 0.9;
            putSample(bytes, static_cast<snd_pcm_format_t>(format.format), value);
        }
    }
    return bytes;
}

// About a second and a half of the tone through the converter: one channel, full scale 1.
std::vector<double> convertTone(const audioInfo& source, const audioInfo& destination,
                                unsigned channel) {
    std::vector<double> samples;
    outputOf([&] {
        AudioResample converter(source, destination);
        std::vector<unsigned char> out(converter.outputLimit());
        EXPECT_LE(out.size(), 64U * 1024);
        for (std::size_t number = 0; number < source.rate * 3 / 2 / chunk; ++number) {
            const std::vector<unsigned char> in = toneChunk(source, number);
            unsigned length = 0;
            ASSERT_TRUE(converter.resampleProcess(in.data(), static_cast<unsigned>(in.size()),
                                                  out.data(), &length));
            ASSERT_LE(length, out.size());
            for (unsigned at = channel * 2; at + 2 <= length; at += 4) {
                std::int16_t value = 0;
                std::memcpy(&value, &out[at], sizeof value);
                samples.push_back(value / 32767.0);
            }
        }
    });
    return samples;
}

// The tone's part of a stretch of samples, as amplitude and phase against the expected frequency.
std::complex<double> toneOf(const std::vector<double>& samples, std::size_t from, std::size_t count,
                            double rate) {
    std::complex<double> sum = 0;
    for (std::size_t i = from; i < from + count; ++i) {
        sum += samples[i] * std::polar(1.0, -2 * M_PI * tone_Hz * static_cast<double>(i) / rate);
    }
    return 2.0 * sum / static_cast<double>(count);
}

struct Tone {
    double frequency_Hz, level, rest;  // rest: what is not the tone, against it
};

Tone measure(const std::vector<double>& samples, double rate) {
    const auto half = static_cast<std::size_t>(rate / 2);
    const std::size_t skip = samples.size() - 2 * half;
    const std::complex<double> first = toneOf(samples, skip, half, rate);
    const std::complex<double> second = toneOf(samples, skip + half, half, rate);
    double energy = 0;
    for (std::size_t i = skip; i < samples.size(); ++i) {
        energy += samples[i] * samples[i];
    }
    energy /= static_cast<double>(2 * half);
    const double level = std::abs(first + second) / 2;
    const double rest = std::max(0.0, energy - level * level / 2);
    return {tone_Hz + std::arg(second / first) / (2 * M_PI * 0.5), level,
            std::sqrt(rest) / std::max(level, 1e-9)};
}

// What a session plays for a camera of this rate.
unsigned outputRate(unsigned rate) {
    return rate == 8000 ? 32000 : rate == 16000 ? 44100 : rate;
}

class Tones : public testing::TestWithParam<unsigned> {};

TEST_P(Tones, KeepPitchAndLevel) {
    const unsigned rate = GetParam();
    const audioInfo destination = info(SND_PCM_FORMAT_S16_LE, outputRate(rate), 2);
    for (const snd_pcm_format_t format :
         {SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S24_LE, SND_PCM_FORMAT_S32_LE,
          SND_PCM_FORMAT_FLOAT_LE, SND_PCM_FORMAT_U8}) {
        for (const unsigned channels : {1U, 2U, 3U, 8U}) {
            const std::string what = std::string(snd_pcm_format_name(format)) + " " +
                                     std::to_string(channels) + " at " + std::to_string(rate);
            const std::vector<double> samples =
                convertTone(info(format, rate, channels), destination, channels % 2);
            const Tone tone = measure(samples, destination.rate);
            EXPECT_NEAR(tone.frequency_Hz, tone_Hz, 1.0) << what;
            // One channel goes to both sides 3 dB lower. 24 bit in the low part of 32 are taken as
            // 32 bit: 48 dB lower.
            const double expected = amplitude * (channels == 1 ? M_SQRT1_2 : 1.0) *
                                    (format == SND_PCM_FORMAT_S24_LE ? 1.0 / 256 : 1.0);
            EXPECT_NEAR(tone.level / expected, 1.0, 0.02) << what;
            EXPECT_LT(tone.rest, 0.02) << what;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, Tones, testing::Values(48000, 44100, 32000, 16000, 8000));

TEST(AudioResample, SaysWhatItConverts) {
    const Output output = outputOf([] {
        AudioResample(info(SND_PCM_FORMAT_S16_LE, 16000, 1), info(SND_PCM_FORMAT_S16_LE, 44100, 2));
    });
    EXPECT_EQ(output.out,
              "src channels 1\nsrc format 2\nsrc sample 16000\ndst channels 2\ndst format 2\n"
              "dst sample 44100\naudio resample init succeed\n");
    EXPECT_EQ(output.err, "");
}

TEST(AudioResample, KnowsTheFormats) {
    EXPECT_EQ(AudioResample::switchAvFmt(SND_PCM_FORMAT_U8), AV_SAMPLE_FMT_U8);
    for (const auto format : {SND_PCM_FORMAT_S24_LE, SND_PCM_FORMAT_S24_BE, SND_PCM_FORMAT_S32_LE,
                              SND_PCM_FORMAT_S32_BE}) {
        EXPECT_EQ(AudioResample::switchAvFmt(format), AV_SAMPLE_FMT_S32);
    }
    for (const auto format : {SND_PCM_FORMAT_FLOAT_LE, SND_PCM_FORMAT_FLOAT_BE}) {
        EXPECT_EQ(AudioResample::switchAvFmt(format), AV_SAMPLE_FMT_FLT);
    }
    for (const auto format : {SND_PCM_FORMAT_S8, SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S16_BE,
                              SND_PCM_FORMAT_UNKNOWN, SND_PCM_FORMAT_S24_3LE}) {
        EXPECT_EQ(AudioResample::switchAvFmt(format), AV_SAMPLE_FMT_S16);
    }
}

TEST(AudioResample, ChangesTheSampleFormatAlone) {
    outputOf([] {
        AudioResample converter(info(SND_PCM_FORMAT_S32_LE, 48000, 2),
                                info(SND_PCM_FORMAT_S16_LE, 48000, 2));
        std::vector<unsigned char> in(chunk * 8);
        const std::int32_t sample = 1234 << 16;
        for (std::size_t at = 0; at < in.size(); at += 4) {
            std::memcpy(&in[at], &sample, 4);
        }
        std::vector<unsigned char> out(converter.outputLimit());
        for (int i = 0; i < 3; ++i) {
            unsigned length = 0;
            ASSERT_TRUE(converter.resampleProcess(in.data(), static_cast<unsigned>(in.size()),
                                                  out.data(), &length));
            EXPECT_EQ(length, chunk * 4);
            std::int16_t value = 0;
            std::memcpy(&value, &out[100], 2);
            EXPECT_EQ(value, 1234);
        }
    });
}

TEST(AudioResample, MakesFloats) {
    outputOf([] {
        AudioResample converter(info(SND_PCM_FORMAT_S16_LE, 48000, 2),
                                info(SND_PCM_FORMAT_FLOAT_LE, 48000, 2));
        const std::vector<std::int16_t> in(chunk * 2, 16384);
        std::vector<unsigned char> out(converter.outputLimit());
        unsigned length = 0;
        ASSERT_TRUE(converter.resampleProcess(reinterpret_cast<const unsigned char*>(in.data()),
                                              chunk * 4, out.data(), &length));
        ASSERT_EQ(length, chunk * 8);
        float value = 0;
        std::memcpy(&value, &out[80], 4);
        EXPECT_NEAR(value, 0.5, 1e-4);
    });
}

// 941 frames are made room for at first; what the filter holds back needs more, once.
TEST(AudioResample, GrowsItsDestinationAndSaysSo) {
    unsigned longest = 0;
    const Output output = outputOf([&] {
        AudioResample converter(info(SND_PCM_FORMAT_S16_LE, 48000, 2),
                                info(SND_PCM_FORMAT_S16_LE, 44100, 2));
        std::vector<unsigned char> in(chunk * 4), out(converter.outputLimit());
        for (int i = 0; i < 500; ++i) {
            unsigned length = 0;
            ASSERT_TRUE(converter.resampleProcess(in.data(), static_cast<unsigned>(in.size()),
                                                  out.data(), &length));
            longest = std::max(longest, length);
        }
    });
    EXPECT_NE(output.out.find("redefine malloc resample\n"), std::string::npos);
    EXPECT_LE(output.out.size(), 1000U);
    EXPECT_GE(longest, 940U * 4);
}

// The count of frames is fixed: what a shorter chunk leaves of the one before sounds again.
TEST(AudioResample, AShortChunkIsFollowedByTheEndOfTheOneBefore) {
    outputOf([] {
        AudioResample converter(info(SND_PCM_FORMAT_S16_LE, 48000, 2),
                                info(SND_PCM_FORMAT_FLOAT_LE, 48000, 2));
        const std::vector<std::int16_t> whole(chunk * 2, 8192), half(chunk, -8192);
        std::vector<unsigned char> out(converter.outputLimit());
        unsigned length = 0;
        converter.resampleProcess(reinterpret_cast<const unsigned char*>(whole.data()), chunk * 4,
                                  out.data(), &length);
        ASSERT_TRUE(converter.resampleProcess(reinterpret_cast<const unsigned char*>(half.data()),
                                              chunk * 2, out.data(), &length));
        ASSERT_EQ(length, chunk * 8);
        float first = 0, last = 0;
        std::memcpy(&first, &out[0], 4);
        std::memcpy(&last, &out[length - 4], 4);
        EXPECT_NEAR(first, -0.25, 1e-4);
        EXPECT_NEAR(last, 0.25, 1e-4);
    });
}

TEST(AudioResample, NeverWritesBeyondAChunk) {
    outputOf([] {
        AudioResample converter(info(SND_PCM_FORMAT_S16_LE, 48000, 8),
                                info(SND_PCM_FORMAT_S16_LE, 48000, 2));
        const std::vector<unsigned char> in(chunk * 16 * 3, 1);
        std::vector<unsigned char> out(converter.outputLimit());
        unsigned length = 0;
        EXPECT_TRUE(converter.resampleProcess(in.data(), static_cast<unsigned>(in.size()),
                                              out.data(), &length));
        EXPECT_EQ(length, chunk * 4);
    });
}

TEST(AudioResample, RefusesWhatItCouldNotSetUp) {
    for (const auto& [source, destination] :
         {std::pair{0U, 48000U}, std::pair{48000U, 0U}, std::pair{1U, 4000000000U}}) {
        const Output output = outputOf([&, from = source, to = destination] {
            AudioResample converter(info(SND_PCM_FORMAT_S16_LE, from, 2),
                                    info(SND_PCM_FORMAT_S16_LE, to, 2));
            unsigned char in[4] = {}, out[4] = {};
            unsigned length = 77;
            EXPECT_FALSE(converter.resampleProcess(in, 4, out, &length));
            EXPECT_EQ(length, 77U);
        });
        EXPECT_NE(output.out.find("Could not allocate destination samples\n"), std::string::npos);
        EXPECT_EQ(output.out.find("Error while converting"), std::string::npos);
    }
}

}  // namespace
