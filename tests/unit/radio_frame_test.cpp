// Parsing of link headers and frames.
#include <gtest/gtest.h>

#include "lab/radio/association_tracker.h"
#include "lab/radio/frame.h"
#include "tests/unit/radio_frames.h"

namespace {

using namespace radio_frames;
using radio::skip;

const raw ack = {0xd4, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x0a, 0x01};

raw radiotap(std::uint8_t flags) { return {0, 0, 9, 0, 0x02, 0, 0, 0, flags}; }

radio::bare_frame strip(int link, const raw &packet) { return radio::strip_link_header(link, packet, packet.size()); }

raw frame_in(int link, const raw &packet) {
    const radio::bare_frame bare = strip(link, packet);
    EXPECT_FALSE(bare.skipped);
    return {bare.frame.begin(), bare.frame.end()};
}

// The example of the CRC catalogue: the check value of "123456789" is cbf43926.
TEST(radio_link_header, computes_the_frame_check_sequence) {
    const std::string_view digits = "123456789";
    EXPECT_EQ(radio::frame_check_sequence(raw(digits.begin(), digits.end())), 0xcbf43926U);
}

TEST(radio_link_header, takes_a_frame_as_it_is_and_removes_an_fcs_that_fits) {
    EXPECT_EQ(frame_in(radio::link_80211, ack), ack);
    EXPECT_EQ(frame_in(radio::link_80211, ack + fcs_of(ack)), ack);
}

TEST(radio_link_header, removes_the_fcs_that_radiotap_announces) {
    EXPECT_EQ(frame_in(radio::link_radiotap, radiotap(0x10) + ack + raw{1, 2, 3, 4}), ack);
    EXPECT_EQ(frame_in(radio::link_radiotap, radiotap(0x00) + ack), ack);
}

TEST(radio_link_header, believes_radiotap_that_there_is_no_fcs) {
    const raw frame = ack + fcs_of(ack);
    EXPECT_EQ(frame_in(radio::link_radiotap, radiotap(0x00) + frame), frame);
}

TEST(radio_link_header, skips_a_frame_that_was_heard_damaged) {
    EXPECT_EQ(strip(radio::link_radiotap, radiotap(0x40) + ack).skipped, skip::bad_fcs);
}

TEST(radio_link_header, finds_radiotap_flags_behind_more_presence_words_and_a_time_stamp) {
    const raw header = {0,    0, 25, 0,                 //
                        0x03, 0, 0,  0x80, 0, 0, 0, 0,  // TSFT, flags, another word follows
                        0,    0, 0,  0,                 // aligns the time stamp
                        1,    2, 3,  4,    5, 6, 7, 8, 0x10};
    EXPECT_EQ(frame_in(radio::link_radiotap, header + ack + raw{1, 2, 3, 4}), ack);
}

TEST(radio_link_header, reads_ppi_fields) {
    const raw common = {2, 0, 20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const raw header = raw{0, 0, 36, 0, 105, 0, 0, 0, 99, 0, 0, 0} + common;
    EXPECT_EQ(frame_in(radio::link_ppi, header + ack + raw{1, 2, 3, 4}), ack);
    raw damaged = header;
    damaged[24] = 0x05;
    EXPECT_EQ(strip(radio::link_ppi, damaged + ack + raw{1, 2, 3, 4}).skipped, skip::bad_fcs);
}

TEST(radio_link_header, reads_prism_in_both_orders_and_avs) {
    const raw little = raw{0x44, 0, 0, 0, 144, 0, 0, 0} + raw(136);
    const raw big = raw{0, 0, 0, 0x44, 0, 0, 0, 144} + raw(136);
    const raw avs = raw{0x80, 0x21, 0x10, 0x01, 0, 0, 0, 64} + raw(56);
    EXPECT_EQ(frame_in(radio::link_prism, little + ack), ack);
    EXPECT_EQ(frame_in(radio::link_prism, big + ack), ack);
    EXPECT_EQ(frame_in(radio::link_prism, avs + ack), ack);
    EXPECT_EQ(frame_in(radio::link_avs, avs + ack + fcs_of(ack)), ack);
}

TEST(radio_link_header, skips_packets_of_which_the_capture_holds_only_the_beginning) {
    const raw packet = radiotap(0) + ack;
    EXPECT_EQ(radio::strip_link_header(radio::link_radiotap, packet, packet.size() + 1).skipped, skip::cut);
}

TEST(radio_link_header, skips_malformed_headers) {
    EXPECT_EQ(strip(radio::link_radiotap, raw{1, 0, 9, 0, 2, 0, 0, 0, 0} + ack).skipped, skip::link_header);
    EXPECT_EQ(strip(radio::link_radiotap, raw{0, 0, 200, 0, 2, 0, 0, 0, 0} + ack).skipped, skip::link_header);
    EXPECT_EQ(strip(radio::link_radiotap, raw{0, 0, 8, 0, 2, 0, 0, 0} + ack).skipped, skip::link_header);
    EXPECT_EQ(strip(radio::link_radiotap, raw{0, 0, 8, 0, 0, 0, 0, 0x80} + ack).skipped, skip::link_header);
    EXPECT_EQ(strip(radio::link_ppi, raw{0, 0, 8, 0, 1, 0, 0, 0} + ack).skipped, skip::link_header);
    EXPECT_EQ(strip(radio::link_ppi, raw{0, 0, 14, 0, 105, 0, 0, 0, 2, 0, 9, 0, 0, 0} + ack).skipped,
              skip::link_header);
    EXPECT_EQ(strip(radio::link_prism, raw{0x45, 0, 0, 0, 144, 0, 0, 0} + raw(136)).skipped, skip::link_header);
    EXPECT_EQ(strip(radio::link_prism, raw{0x44, 0, 0, 0, 255, 0, 0, 0} + raw(136)).skipped, skip::link_header);
    EXPECT_EQ(strip(radio::link_avs, raw{0x80, 0x21, 0x20, 0x01, 0, 0, 0, 8}).skipped, skip::link_header);
}

TEST(radio_link_header, cut_at_every_length_reads_nothing_outside) {
    const raw time_stamped = raw{0, 0, 17, 0, 0x03, 0, 0, 0} + raw(8) + raw{0x10} + ack + fcs_of(ack);
    const raw per_packet = raw{0, 0, 32, 0, 105, 0, 0, 0, 2, 0, 20, 0} + raw(20) + ack;
    const raw prism = raw{0x44, 0, 0, 0, 20, 0, 0, 0} + raw(12) + ack;
    for (const auto &[link, packet] : {std::pair{radio::link_radiotap, time_stamped},
                                       {radio::link_ppi, per_packet},
                                       {radio::link_prism, prism},
                                       {radio::link_avs, prism},
                                       {radio::link_80211, ack}}) {
        for (std::size_t length = 0; length < packet.size(); ++length) {
            const raw piece(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(length));
            const radio::bare_frame bare = strip(link, piece);
            EXPECT_LE(bare.frame.size(), length);
        }
    }
}

TEST(radio_frame, knows_the_header_of_every_kind_of_data) {
    const raw body = {0x11, 0x22, 0x33};
    const auto body_of = [](const raw &data, bool padded = false) {
        const auto parsed = radio::parse_frame(data, padded);
        return parsed ? raw(parsed->body.begin(), parsed->body.end()) : raw{};
    };
    EXPECT_EQ(body_of(make_frame(0x08, 0x01, office, anna, ben, 1, body)), body);
    EXPECT_EQ(body_of(make_frame(0x88, 0x01, office, anna, ben, 1, raw{5, 0} + body)), body);              // QoS
    EXPECT_EQ(body_of(make_frame(0x88, 0x81, office, anna, ben, 1, raw{5, 0, 0, 0, 0, 0} + body)), body);  // HT
    EXPECT_EQ(body_of(make_frame(0x08, 0x03, office, anna, ben, 1, as_bytes(guest) + body)), body);        // WDS
    EXPECT_EQ(body_of(make_frame(0x88, 0x03, office, anna, ben, 1, as_bytes(guest) + raw{5, 0} + body)), body);
    EXPECT_EQ(body_of(make_frame(0x88, 0x01, office, anna, ben, 1, raw{5, 0, 0, 0} + body), true), body);  // padded
}

TEST(radio_frame, tells_the_fields_of_the_header) {
    const raw data = make_frame(0x88, 0x49, office, anna, ben, 0x123, raw{0x86, 0});
    const auto parsed = radio::parse_frame(data, false);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->type, radio::frame_type::data);
    EXPECT_TRUE(parsed->to_ds && parsed->retry && parsed->is_protected && parsed->aggregate);
    EXPECT_FALSE(parsed->from_ds || parsed->more_fragments);
    EXPECT_EQ(parsed->tid, 6);
    EXPECT_EQ(parsed->receiver, office);
    EXPECT_EQ(parsed->transmitter, anna);
    EXPECT_EQ(parsed->address3, ben);
    EXPECT_EQ(parsed->sequence, 0x1230);
}

TEST(radio_frame, refuses_another_protocol_version) {
    raw data = beacon(office, "office");
    data[0] |= 1U;
    EXPECT_FALSE(radio::parse_frame(data, false));
}

TEST(radio_frame, finds_a_name_and_takes_zeros_for_a_hidden_one) {
    using namespace std::string_view_literals;
    EXPECT_EQ(radio::parse_network_body(raw(4) + element(1, "xy") + element(0, "office"), 4)->ssid, "office");
    EXPECT_EQ(radio::parse_network_body(raw(4) + element(0, "\0\0\0"sv), 4)->ssid, "");
    EXPECT_EQ(radio::parse_network_body(raw(4), 4)->ssid, "");
    EXPECT_EQ(radio::parse_network_body(raw(4) + element(0, std::string(32, 'a')), 4)->ssid, std::string(32, 'a'));
    EXPECT_FALSE(radio::parse_network_body(raw(4) + element(0, std::string(33, 'a')), 4));
    EXPECT_FALSE(radio::parse_network_body(raw(4) + raw{0, 5, 'o'}, 4));
    EXPECT_FALSE(radio::parse_network_body(raw(4) + raw{0}, 4));
    EXPECT_FALSE(radio::parse_network_body(raw(3), 4));
}

// A cut frame is malformed, or it was cut where it could have ended. No part of a frame gives a different event than
// the whole.
TEST(radio_frame, cut_at_every_length_is_counted_or_means_the_same) {
    const std::vector<raw> frames = {association_request(anna, office, 1, "office"),
                                     association_response(anna, office, 2, 0),
                                     reassociation_request(anna, office, 3, guest),
                                     reassociation_response(anna, office, 4, 0),
                                     beacon(office, "office"),
                                     departure(0xc0, anna, office, office, 5, 3),
                                     arp(anna, office, anna, {10, 0, 10, 21}),
                                     dhcp(anna, office, 5, {10, 0, 10, 22}),
                                     make_frame(0x88, 0x83, office, anna, ben, 6, raw(20)),
                                     ack};
    for (const raw &whole : frames) {
        radio::association_tracker of_whole;
        std::vector<radio::air_event> expected;
        ASSERT_FALSE(of_whole.receive(whole, false, expected));
        for (std::size_t length = 0; length < whole.size(); ++length) {
            // A separate allocation, so that a sanitizer detects a read past its end.
            const raw piece(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            radio::association_tracker of_piece;
            std::vector<radio::air_event> events;
            const auto skipped = of_piece.receive(piece, false, events);
            EXPECT_TRUE(events.empty() || !skipped);
            if (!events.empty()) {
                ASSERT_EQ(events.size(), expected.size());
                EXPECT_EQ(events[0].what, expected[0].what);
                EXPECT_EQ(events[0].code, expected[0].code);
                EXPECT_EQ(events[0].ip, expected[0].ip);
            }
        }
    }
}

}  // namespace
