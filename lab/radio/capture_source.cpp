#include "lab/radio/capture_source.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace radio {
namespace {

// Maximum number of frames per step, so that the event loop is not blocked.
constexpr int frames_per_step = 1000;

// libpcap reports a file that ends within a packet with this text. Such a file results when its writer is killed.
bool ends_early(const char *error) { return std::string_view(error).find("truncated") != std::string_view::npos; }

// A pcapng file may have times of 64 bits. What no clock of 32 bits shows is damage, and would overflow a lab_time.
lab_time time_of(const timeval &stamp) {
    const auto seconds = std::clamp<int64_t>(stamp.tv_sec, 0, std::numeric_limits<uint32_t>::max());
    return std::chrono::seconds(seconds) + std::chrono::microseconds(stamp.tv_usec);
}

}  // namespace

void capture_source::closer::operator()(pcap *open) const { pcap_close(open); }

capture_source::capture_source(const std::string &file) : file_(file) {
    char error[PCAP_ERRBUF_SIZE] = "";
    // Opened here so that the error message has the system's reason.
    std::FILE *stream = std::fopen(file.c_str(), "rbe");
    if (stream == nullptr) {
        throw std::runtime_error(file + ": " + std::strerror(errno));
    }
    open_.reset(pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_MICRO, error));
    if (!open_) {
        std::fclose(stream);
        throw std::runtime_error(file + ": not a readable capture: " + error);
    }
    link_ = pcap_datalink(open_.get());
    if (!is_wireless(link_)) {
        const char *name = pcap_datalink_val_to_name(link_);
        throw std::runtime_error(file + ": link type " + (name == nullptr ? std::to_string(link_) : name) +
                                 " holds no 802.11 frames (expected 802.11, radiotap, PPI, Prism or AVS)");
    }
}

event_source::step capture_source::next(timed_event &event) {
    for (int frames = 0; events_.empty(); ++frames) {
        if (frames == frames_per_step) {
            return step::nothing_yet;
        }
        if (!read_frame()) {
            return step::end;
        }
    }
    event = events_.front();
    events_.pop_front();
    return step::event;
}

void capture_source::note_damage(const char *error) {
    damage_ = {.what = file_ + ": " + error, .is_loss = !ends_early(error)};
    if (!damage_.is_loss) {
        ++counters_.frames;
        ++counters_.skipped[static_cast<std::size_t>(skip::cut)];
    }
}

// False at the end of the file.
bool capture_source::read_frame() {
    pcap_pkthdr *header = nullptr;
    const u_char *data = nullptr;
    const int result = pcap_next_ex(open_.get(), &header, &data);
    if (result != 1) {
        if (result == PCAP_ERROR && damage_.what.empty()) {
            note_damage(pcap_geterr(open_.get()));
        }
        return false;
    }
    const lab_time at = time_of(header->ts);
    if (counters_.frames++ == 0) {
        first_ = at;
    }
    // A capture that was merged from several sources may be out of order. Event times never decrease.
    latest_ = std::max(latest_, at - first_);

    const bare_frame bare = strip_link_header(link_, {data, header->caplen}, header->len);
    std::optional<skip> skipped = bare.skipped;
    std::vector<air_event> found;
    if (!skipped) {
        skipped = tracker_.receive(bare.frame, bare.padded, found);
    }
    if (skipped) {
        ++counters_.skipped[static_cast<std::size_t>(*skipped)];
    }
    for (const air_event &event : found) {
        events_.push_back({.at = latest_, .event = event});
    }
    return true;
}

}  // namespace radio
