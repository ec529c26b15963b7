#include "board/daemon/display/screenfiles.h"

#include <drm_fourcc.h>
#include <libyuv.h>
#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace board {

namespace {

constexpr std::size_t rgbBytes = 3;

std::vector<std::uint8_t> toRgb(const Snapshot& picture) {
    std::vector<std::uint8_t> rgb(rgbBytes * picture.width * picture.height, 0);
    if (picture.black())
        return rgb;
    const ScreenView view = picture.view();
    const int width = int(view.width), height = int(view.height);
    const int rgbPitch = width * int(rgbBytes);
    // libyuv names orders from the highest byte: its RAW is red, green, blue in memory, its ARGB is
    // this card's XRGB8888.
    if (view.format == DRM_FORMAT_NV12)
        libyuv::NV12ToRAW(view.planes[0], int(view.pitches[0]), view.planes[1],
                          int(view.pitches[1]), rgb.data(), rgbPitch, width, height);
    else
        libyuv::ARGBToRAW(view.planes[0], int(view.pitches[0]), rgb.data(), rgbPitch, width,
                          height);
    return rgb;
}

std::string cannotWrite(const std::string& path) {
    return "cannot write " + path + ": " + std::strerror(errno);
}

}  // namespace

std::string writePng(const Snapshot& picture, const std::string& path) {
    const std::vector<std::uint8_t> rgb = toRgb(picture);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = PNG_FORMAT_RGB;
    image.flags = PNG_IMAGE_FLAG_FAST;
    std::FILE* file = std::fopen(path.c_str(), "wbe");
    if (file == nullptr)
        return cannotWrite(path);
    const bool encoded = png_image_write_to_stdio(&image, file, 0, rgb.data(), 0, nullptr) != 0;
    const bool closed = std::fclose(file) == 0;
    if (encoded && closed)
        return {};
    std::string problem =
        encoded ? cannotWrite(path) : "cannot write " + path + ": " + image.message;
    std::remove(path.c_str());
    return problem;
}

std::string writeDump(const std::vector<DumpedFrame>& frames, const std::string& folder) {
    std::error_code problem;
    std::filesystem::create_directories(folder, problem);
    if (problem)
        return "cannot make " + folder + ": " + problem.message();
    std::ostringstream index;
    index << "[";
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const Snapshot& picture = frames[i].picture;
        const char* format = picture.format == DRM_FORMAT_NV12 ? "nv12" : "xr24";
        char name[32];
        std::snprintf(name, sizeof name, "%03zu.%s", i, format);
        const std::string path = folder + "/" + name;
        std::ofstream file(path, std::ios::binary);
        file.write(reinterpret_cast<const char*>(picture.bytes.get()),
                   std::streamsize(picture.size));
        file.close();
        if (!file)
            return cannotWrite(path);
        index << (i == 0 ? "\n" : ",\n") << "  {\"file\": \"" << name
              << "\", \"frame\": " << frames[i].frame << ", \"width\": " << picture.width
              << ", \"height\": " << picture.height << ", \"format\": \"" << format
              << "\", \"time_100us\": " << frames[i].time_100us << "}";
    }
    index << "\n]\n";
    const std::string path = folder + "/index.json";
    std::ofstream file(path);
    file << index.str();
    file.close();
    return file ? std::string() : cannotWrite(path);
}

}  // namespace board
