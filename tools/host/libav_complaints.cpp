#include "host/libav_complaints.h"

#include <array>
#include <mutex>

#include "ffmpeg.h"

namespace plendix {
namespace {

std::mutex mutex;
std::uint64_t complaints = 0;  // guarded by mutex, as the next
std::string first_complaint;

void note(void* object, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_ERROR) return;
    std::array<char, 256> line{};
    int prefix = 1;
    av_log_format_line2(object, level, format, arguments, line.data(), line.size(), &prefix);
    const std::lock_guard<std::mutex> lock(mutex);
    if (complaints++ == 0) first_complaint = line.data();
    while (!first_complaint.empty() && first_complaint.back() == '\n')
        first_complaint.pop_back();
}

}  // namespace

LibavComplaints::LibavComplaints() {
    forget();
    av_log_set_callback(note);
}

LibavComplaints::~LibavComplaints() {
    av_log_set_callback(av_log_default_callback);
}

std::uint64_t LibavComplaints::count() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return complaints;
}

std::string LibavComplaints::first() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return first_complaint;
}

void LibavComplaints::forget() {
    const std::lock_guard<std::mutex> lock(mutex);
    complaints = 0;
    first_complaint.clear();
}

}  // namespace plendix
