// Decodes controller messages as the controller does. A line of standard input is "up" or "down", for the direction,
// and the message's digits; its line of standard output is a JSON array of what is in the message.
#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

#include "common/hex.h"
#include "controller/message.h"
#include "controller/render.h"

int main() {
    try {
        std::string line;
        while (std::getline(std::cin, line)) {
            const std::size_t space = line.find(' ');
            const auto content = kx::parse_hex(line.substr(space + 1));
            if (space == std::string::npos || !content) {
                throw std::runtime_error("expected a direction and digits");
            }
            const bool up = line.starts_with("up ");
            const auto sent = up ? controller::direction::to_controller : controller::direction::to_access_point;
            const controller::message decoded = controller::decode(*content, sent);
            nlohmann::ordered_json all = nlohmann::ordered_json::array();
            for (const controller::item &each : decoded.items) {
                all.push_back(controller::to_json(decoded.ap, each));
            }
            std::cout << controller::to_line(all) << '\n';
        }
        return 0;
    } catch (const std::exception &error) {
        std::cerr << "decode_messages: " << error.what() << '\n';
        return 1;
    }
}
