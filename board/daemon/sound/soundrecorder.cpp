#include "board/daemon/sound/soundrecorder.h"

#include "board/daemon/sound/wavefile.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <utility>

namespace board {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t flushBytes = 64 << 10;
// A disk that does not keep up: frames are dropped, and the recording says that it failed.
constexpr std::size_t mostWaiting = 256 << 20;

}  // namespace

// What the worker has; only it touches the files.
struct SoundRecorder::Job {
    explicit Job(std::string file) : path(std::move(file)) {
        table.open(fs::path(path).replace_extension(".csv"));
        table << "time_ns,frame,left,event\n";
    }

    void begin(const SoundFormat& format) {
        ++files;
        fs::path next(path);
        if (files > 1)
            next.replace_filename(next.stem().string() + "-" + std::to_string(files) +
                                  next.extension().string());
        wave.reset();
        try {
            wave = std::make_unique<WaveFile>(next.string(), format);
        } catch (const std::runtime_error& failure) {
            error = failure.what();
        }
    }

    std::string path;
    unsigned files = 0;
    std::unique_ptr<WaveFile> wave;
    std::ofstream table;
    std::string error;
    std::atomic<std::size_t> waiting{0};  // bytes handed over and not yet written
    bool overflowed = false;              // loop thread
};

SoundRecorder::SoundRecorder(EventLoop& loop, JobWorker& worker) : loop_(loop), worker_(worker) {}

SoundRecorder::~SoundRecorder() {
    if (job_ != nullptr)
        flush();
}

std::string SoundRecorder::start(const std::string& path) {
    if (job_ != nullptr)
        return "a recording of the sound is under way already";
    auto job = std::make_shared<Job>(path);
    if (!job->table)
        return path + ": cannot be written";
    job_ = std::move(job);
    fileFormat_ = {};
    count_ = 0;
    changed_ = false;
    return {};
}

void SoundRecorder::frames(const std::uint8_t* frames, std::uint32_t count) {
    if (job_ == nullptr)
        return;
    if (!(format_ == fileFormat_)) {
        flush();
        fileFormat_ = format_;
        changed_ = true;
        count_ = 0;
    }
    pending_.insert(pending_.end(), frames, frames + std::size_t(count) * format_.frameBytes());
    count_ += count;
    if (pending_.size() >= flushBytes)
        flush();
}

void SoundRecorder::event(const char* what, std::int64_t board_ns, std::int64_t left) {
    if (job_ == nullptr)
        return;
    char line[96];
    std::snprintf(line, sizeof line, "%lld,%llu,%lld,%s\n", static_cast<long long>(board_ns),
                  static_cast<unsigned long long>(count_), static_cast<long long>(left), what);
    pendingLines_ += line;
}

void SoundRecorder::flush() {
    if (job_->waiting > mostWaiting) {
        job_->overflowed = true;
        pending_.clear();
    }
    job_->waiting += pending_.size();
    worker_.run([job = job_, bytes = std::move(pending_), lines = std::move(pendingLines_),
                 format = fileFormat_, begin = std::exchange(changed_, false)] {
        if (begin && !WaveFile::canHold(format))
            job->error = "the stream's format cannot stand in a WAV file";
        else if (begin)
            job->begin(format);
        if (job->wave != nullptr) {
            job->wave->append(bytes.data(), bytes.size());
            if (job->wave->failed())
                job->error = job->path + ": cannot be written to its end";
        }
        job->table << lines;
        job->waiting -= bytes.size();
    });
    pending_.clear();
    pendingLines_.clear();
}

void SoundRecorder::stop(Done done) {
    if (job_ == nullptr) {
        done({"no recording of the sound is under way", "", 0});
        return;
    }
    flush();
    Result result;
    result.path = job_->path;
    result.frames = count_;
    if (count_ == 0)
        result.error = "nothing was played";
    else if (job_->overflowed)
        result.error = job_->path + ": the disk is too slow, frames are missing";
    worker_.run([job = std::move(job_), result, done = std::move(done), &loop = loop_]() mutable {
        job->wave.reset();
        job->table.close();
        if (!job->error.empty())
            result.error = job->error;
        loop.post([result, done] { done(result); });
    });
    job_.reset();
}

}  // namespace board
