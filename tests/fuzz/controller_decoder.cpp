// The controller decodes, shows and answers what access points send. Input: events, each a byte for its kind and a
// block.
#include <array>

#include "controller/message.h"
#include "controller/render.h"
#include "controller/site.h"
#include "input.h"
#include "require.h"

namespace {

using controller::bytes;
using controller::mac_address;

constexpr unsigned EVENTS_MAX = 200;
constexpr std::array<mac_address, 3> APS = {{{2, 0, 0, 0, 0xa, 0}, {2, 0, 0, 0, 0xb, 0}, {2, 0, 0, 0, 0xc, 0}}};

const mac_address &access_point(uint8_t number) { return APS[number % APS.size()]; }

mac_address station(fuzz::input &in) { return {6, 0, 0, 0, 0, in.byte()}; }

void put16(bytes &to, size_t value) {
    to.push_back(static_cast<uint8_t>(value >> 8));
    to.push_back(static_cast<uint8_t>(value));
}

// Records, each a type and a block with its body. Their headers are added.
bytes framed(const mac_address &ap, fuzz::input &in) {
    bytes records;
    size_t count = 0;
    for (; !in.empty(); count++) {
        const uint8_t type = in.byte();
        const auto body = in.block();
        records.insert(records.end(), {type, 4});
        put16(records, 4 + body.size());
        records.insert(records.end(), body.begin(), body.end());
    }
    bytes content = {1, 14, 0};
    put16(content, count);
    content.push_back(0);
    put16(content, 14 + records.size());
    content.insert(content.end(), ap.begin(), ap.end());
    content.insert(content.end(), records.begin(), records.end());
    return content;
}

void show(const controller::message &decoded) {
    for (const controller::item &each : decoded.items) {
        fuzz::require(!controller::to_line(controller::to_json(decoded.ap, each)).empty(), "every item has a line");
        fuzz::require(!controller::to_text(decoded.ap, each).empty(), "every item has a text");
    }
}

bool is_well_formed(const controller::message &decoded) {
    for (const controller::item &each : decoded.items) {
        if (std::holds_alternative<controller::malformation>(each)) {
            return false;
        }
    }
    return decoded.ap.has_value();
}

void check_sent(const controller::outbox &sent) {
    for (const controller::outgoing &each : sent) {
        const controller::message decoded =
            controller::decode(controller::encode(each.ap, each.records), controller::direction::to_access_point);
        fuzz::require(is_well_formed(decoded), "what is sent is well-formed");
        fuzz::require(decoded.items.size() == each.records.size(), "what is sent holds every record");
        show(decoded);
    }
}

class controller_rig {
public:
    controller_rig() {
        for (const mac_address &ap : APS) {
            site_.ap_up(ap);
        }
    }

    void happen(uint8_t kind, fuzz::input in) {
        const uint8_t number = in.byte();
        const mac_address &ap = access_point(number);
        switch (kind % 9) {
            case 0: {
                const auto content = in.rest();
                show_what_is_sent(content);
                return receive(content);
            }
            case 1:
            case 2:
                return receive(framed(ap, in));
            case 3:
                return show_what_is_sent(framed(ap, in));
            case 4:
                return number % 2 == 0 ? site_.ap_up(access_point(in.byte())) : site_.ap_down(access_point(in.byte()));
            case 5:
                return check_sent(site_.approve(station(in)));
            case 6:
                return check_sent(site_.send_list(ap).messages);
            case 7:
                return check_sent(site_.remove(station(in)));
            default:
                return check_sent(site_.tick());
        }
    }

private:
    // The message arrives as if from the controller.
    static void show_what_is_sent(std::span<const uint8_t> content) {
        show(controller::decode(content, controller::direction::to_access_point));
    }

    void receive(std::span<const uint8_t> content) {
        const controller::message decoded = controller::decode(content, controller::direction::to_controller);
        show(decoded);
        if (decoded.ap) {
            check_sent(site_.handle(decoded));
        }
    }

    controller::site site_;
};

}  // namespace

void fuzz_one(std::span<const uint8_t> input_bytes) {
    fuzz::input in(input_bytes);
    controller_rig rig;
    for (unsigned i = 0; i < EVENTS_MAX && !in.empty(); i++) {
        const uint8_t kind = in.byte();
        try {
            rig.happen(kind, fuzz::input(in.block()));
        } catch (const controller::refused &) {
            continue;  // a command that cannot be carried out
        }
    }
}
