find_package(PkgConfig REQUIRED)
pkg_check_modules(DRM REQUIRED IMPORTED_TARGET libdrm)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswresample libswscale)
pkg_check_modules(JPEG REQUIRED IMPORTED_TARGET libjpeg)
pkg_check_modules(RESAMPLE REQUIRED IMPORTED_TARGET libavdevice libswresample libavutil)
pkg_check_modules(ALSA REQUIRED IMPORTED_TARGET alsa)
pkg_check_modules(PNG REQUIRED IMPORTED_TARGET libpng)
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)

# Debian's libyuv comes without a pkg-config file.
find_library(YUV_LIBRARY yuv REQUIRED)
find_path(YUV_INCLUDE_DIR libyuv.h REQUIRED)
add_library(yuv INTERFACE)
target_link_libraries(yuv INTERFACE ${YUV_LIBRARY})
target_include_directories(yuv SYSTEM INTERFACE ${YUV_INCLUDE_DIR})

find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)
add_library(rapidjson INTERFACE)
target_include_directories(rapidjson SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIR})

# Debian's core and imgproc packages come without a pkg-config file.
find_path(OPENCV_INCLUDE_DIR opencv2/imgproc.hpp PATH_SUFFIXES opencv4 REQUIRED)
find_library(OPENCV_CORE_LIBRARY opencv_core REQUIRED)
find_library(OPENCV_IMGPROC_LIBRARY opencv_imgproc REQUIRED)
add_library(opencv INTERFACE)
target_link_libraries(opencv INTERFACE ${OPENCV_IMGPROC_LIBRARY} ${OPENCV_CORE_LIBRARY})
target_include_directories(opencv SYSTEM INTERFACE ${OPENCV_INCLUDE_DIR})

# The board's own 2D engine where it is installed, the software engine elsewhere: target `rga`.
pkg_check_modules(VENDOR_RGA IMPORTED_TARGET librga)

# Likewise the board's video decoder: target `rockchip_mpp`.
pkg_check_modules(VENDOR_MPP IMPORTED_TARGET rockchip_mpp)
