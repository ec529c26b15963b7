#include "engine/mpp/frame.h"

#include <new>

namespace mpp {

void Frame::release(Frame* frame) {
    if (frame->drop()) {
        delete frame;
    }
}

namespace {

template <class T>
T get(MppFrame handle, T FrameInfo::*field) {
    const auto* frame = as<Frame>(handle);
    return frame != nullptr ? frame->info.*field : T{};
}

template <class T>
void set(MppFrame handle, T FrameInfo::*field, T value) {
    if (auto* frame = as<Frame>(handle)) {
        frame->info.*field = value;
    }
}

}  // namespace
}  // namespace mpp

using mpp::as;
using mpp::Buffer;
using mpp::Frame;
using mpp::FrameInfo;
using mpp::handleOf;
using mpp::Meta;
using mpp::Ref;
using mpp::refusal;

MPP_RET mpp_frame_init(MppFrame* frame) {
    if (frame == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    auto* made = new (std::nothrow) Frame;
    *frame = made != nullptr ? handleOf(made) : nullptr;
    return made != nullptr ? MPP_OK : MPP_ERR_MALLOC;
}

MPP_RET mpp_frame_deinit(MppFrame* frame) {
    if (frame == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    auto* object = as<Frame>(*frame);
    if (object == nullptr) {
        return refusal(*frame);
    }
    *frame = nullptr;
    Frame::release(object);
    return MPP_OK;
}

MppFrame mpp_frame_get_next(MppFrame) {
    return nullptr;
}

MppBuffer mpp_frame_get_buffer(const MppFrame frame) {
    const auto* object = as<Frame>(frame);
    return object != nullptr && object->buffer ? handleOf(object->buffer.get()) : nullptr;
}

void mpp_frame_set_buffer(MppFrame frame, MppBuffer buffer) {
    if (auto* object = as<Frame>(frame)) {
        object->buffer = Ref<Buffer>(as<Buffer>(buffer));
    }
}

RK_S32 mpp_frame_has_meta(const MppFrame frame) {
    const auto* object = as<Frame>(frame);
    return object != nullptr && object->meta ? 1 : 0;
}

MppMeta mpp_frame_get_meta(const MppFrame frame) {
    auto* object = as<Frame>(frame);
    if (object == nullptr) {
        return nullptr;
    }
    if (!object->meta) {
        object->meta = Ref<Meta>::adopt(new (std::nothrow) Meta);
    }
    return object->meta ? handleOf(object->meta.get()) : nullptr;
}

void mpp_frame_set_meta(MppFrame frame, MppMeta meta) {
    if (auto* object = as<Frame>(frame)) {
        object->meta = Ref<Meta>(as<Meta>(meta));
    }
}

RK_U32 mpp_frame_get_width(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::width);
}

void mpp_frame_set_width(MppFrame frame, RK_U32 width) {
    mpp::set(frame, &FrameInfo::width, width);
}

RK_U32 mpp_frame_get_height(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::height);
}

void mpp_frame_set_height(MppFrame frame, RK_U32 height) {
    mpp::set(frame, &FrameInfo::height, height);
}

RK_U32 mpp_frame_get_hor_stride(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::horStride);
}

void mpp_frame_set_hor_stride(MppFrame frame, RK_U32 hor_stride) {
    mpp::set(frame, &FrameInfo::horStride, hor_stride);
}

RK_U32 mpp_frame_get_ver_stride(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::verStride);
}

void mpp_frame_set_ver_stride(MppFrame frame, RK_U32 ver_stride) {
    mpp::set(frame, &FrameInfo::verStride, ver_stride);
}

RK_U32 mpp_frame_get_hor_stride_pixel(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::horStridePixel);
}

void mpp_frame_set_hor_stride_pixel(MppFrame frame, RK_U32 hor_stride_pixel) {
    mpp::set(frame, &FrameInfo::horStridePixel, hor_stride_pixel);
}

RK_U32 mpp_frame_get_offset_x(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::offsetX);
}

void mpp_frame_set_offset_x(MppFrame frame, RK_U32 offset_x) {
    mpp::set(frame, &FrameInfo::offsetX, offset_x);
}

RK_U32 mpp_frame_get_offset_y(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::offsetY);
}

void mpp_frame_set_offset_y(MppFrame frame, RK_U32 offset_y) {
    mpp::set(frame, &FrameInfo::offsetY, offset_y);
}

RK_U32 mpp_frame_get_mode(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::mode);
}

void mpp_frame_set_mode(MppFrame frame, RK_U32 mode) {
    mpp::set(frame, &FrameInfo::mode, mode);
}

RK_U32 mpp_frame_get_discard(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::discard);
}

void mpp_frame_set_discard(MppFrame frame, RK_U32 discard) {
    mpp::set(frame, &FrameInfo::discard, discard);
}

RK_U32 mpp_frame_get_viewid(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::viewid);
}

void mpp_frame_set_viewid(MppFrame frame, RK_U32 viewid) {
    mpp::set(frame, &FrameInfo::viewid, viewid);
}

RK_U32 mpp_frame_get_poc(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::poc);
}

void mpp_frame_set_poc(MppFrame frame, RK_U32 poc) {
    mpp::set(frame, &FrameInfo::poc, poc);
}

RK_U32 mpp_frame_get_errinfo(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::errinfo);
}

void mpp_frame_set_errinfo(MppFrame frame, RK_U32 errinfo) {
    mpp::set(frame, &FrameInfo::errinfo, errinfo);
}

RK_U32 mpp_frame_get_eos(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::eos);
}

void mpp_frame_set_eos(MppFrame frame, RK_U32 eos) {
    mpp::set(frame, &FrameInfo::eos, eos);
}

RK_U32 mpp_frame_get_info_change(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::infoChange);
}

void mpp_frame_set_info_change(MppFrame frame, RK_U32 info_change) {
    mpp::set(frame, &FrameInfo::infoChange, info_change);
}

RK_S64 mpp_frame_get_pts(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::pts);
}

void mpp_frame_set_pts(MppFrame frame, RK_S64 pts) {
    mpp::set(frame, &FrameInfo::pts, pts);
}

RK_S64 mpp_frame_get_dts(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::dts);
}

void mpp_frame_set_dts(MppFrame frame, RK_S64 dts) {
    mpp::set(frame, &FrameInfo::dts, dts);
}

size_t mpp_frame_get_buf_size(const MppFrame frame) {
    return mpp::get(frame, &FrameInfo::bufSize);
}

void mpp_frame_set_buf_size(MppFrame frame, size_t buf_size) {
    mpp::set(frame, &FrameInfo::bufSize, buf_size);
}

MppFrameFormat mpp_frame_get_fmt(MppFrame frame) {
    return mpp::get(frame, &FrameInfo::format);
}

void mpp_frame_set_fmt(MppFrame frame, MppFrameFormat fmt) {
    mpp::set(frame, &FrameInfo::format, fmt);
}
