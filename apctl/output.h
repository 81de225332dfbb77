// What apctl prints: lines for people, or one JSON array.
#ifndef APCTL_OUTPUT_H
#define APCTL_OUTPUT_H

#include <nlohmann/json.hpp>
#include <string>

namespace apctl {

using json = nlohmann::ordered_json;

class output {
public:
    explicit output(bool as_json) : json_(as_json) {}

    // A line that is no row, such as a heading. Not in JSON.
    void heading(const std::string &line) const;
    // Without control characters in `text`.
    void row(const json &object, const std::string &text);
    // Standard output has taken everything so far.
    bool is_taken() const;
    // Ends the array. Returns false when standard output did not take everything.
    bool end();

private:
    bool json_;
    bool any_ = false;
};

}  // namespace apctl

#endif
