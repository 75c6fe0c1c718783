#include "apps/playout/MetricsFile.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Playout/OutputFile.h"

namespace Tavrin::Playout::Program {

namespace {

void WriteFile(const std::string& file, const std::string& text) {
    OutputFile output(file);
    output.Write(text);
    output.Finish();
}

}  // namespace

MetricsFile::MetricsFile(std::string file, const Counters& counters) : file_(std::move(file)) {
    Write(counters);
    writer_ = std::thread([this] { WriteUntilStopped(); });
}

MetricsFile::~MetricsFile() {
    Stop();
}

void MetricsFile::Offer(Counters counters) {
    {
        const std::scoped_lock lock(mutex_);
        offered_ = std::move(counters);
    }
    changed_.notify_one();
}

void MetricsFile::Finish(const Counters& counters) {
    Stop();
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    Write(counters);
}

void MetricsFile::Stop() {
    {
        const std::scoped_lock lock(mutex_);
        isStopped_ = true;
    }
    changed_.notify_one();
    if (writer_.joinable()) {
        writer_.join();
    }
}

void MetricsFile::WriteUntilStopped() {
    std::unique_lock lock(mutex_);
    while (!failure_) {
        changed_.wait(lock, [this] { return isStopped_ || offered_; });
        if (isStopped_) {
            return;
        }
        const Counters counters = *std::exchange(offered_, std::nullopt);
        lock.unlock();
        std::exception_ptr failure;
        try {
            Write(counters);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        failure_ = failure;
    }
}

void MetricsFile::Write(const Counters& counters) const {
    const std::string text = ToOpenMetrics(counters);
    std::error_code error;
    const auto status = std::filesystem::status(file_, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        WriteFile(file_, text);
        return;
    }
    const std::string part = file_ + ".part";
    WriteFile(part, text);
    std::filesystem::rename(part, file_, error);
    if (error) {
        const std::string reason = error.message();
        std::filesystem::remove(part, error);
        throw std::runtime_error("\"" + file_ + "\": cannot be replaced: " + reason);
    }
}

}  // namespace Tavrin::Playout::Program
