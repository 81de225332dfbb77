#include "controller/commands.h"

#include <event2/http.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <variant>

#include "controller/account_commands.h"
#include "controller/command_table.h"
#include "controller/render.h"

namespace controller {

namespace {

using words = std::vector<std::string>;

std::size_t count_words(std::string_view text) {
    return text.empty() ? 0 : static_cast<std::size_t>(std::ranges::count(text, ' ')) + 1;
}

std::string decode(const std::string &word) {
    std::size_t length = 0;
    const std::unique_ptr<char, decltype(&std::free)> decoded(evhttp_uridecode(word.c_str(), 0, &length), std::free);
    return {decoded.get(), length};
}

bool allows(const command_usage &usage, const std::string &option) {
    return (option == "cursor" && usage.in_pages) || (option == "limit" && usage.is_listing()) ||
           std::ranges::count(words_of(usage.filters), option) > 0;
}

// Separates "--mac 06:00" and "--mac=06:00" from the arguments.
command_request read_request(const command_usage &usage, const words &given) {
    command_request made;
    for (auto at = given.begin(); at != given.end(); ++at) {
        if (*at == "--json") {
            made.as_json = true;
            continue;
        }
        if (!at->starts_with("--")) {
            made.arguments.push_back(decode(*at));
            continue;
        }
        const std::size_t equals = std::min(at->find('='), at->size());
        const std::string option = at->substr(2, equals - 2);
        if (!allows(usage, option)) {
            throw refused("unknown option " + quote(*at));
        }
        if (equals == at->size() && std::next(at) == given.end()) {
            throw refused("--" + option + " needs a value");
        }
        made.filters[option] = decode(equals < at->size() ? at->substr(equals + 1) : *++at);
    }
    const std::size_t most = count_words(usage.arguments);
    const std::size_t least = most - (usage.arguments.ends_with(']') ? 1 : 0);
    if (made.arguments.size() < least || made.arguments.size() > most) {
        throw refused("expected " + (most == 0 ? "no arguments" : std::string(usage.arguments)));
    }
    return made;
}

}  // namespace

const std::vector<command_usage> &command_usages() {
    static const std::vector<command_usage> usages = [] {
        std::vector<command_usage> made;
        std::ranges::transform(command_table(), std::back_inserter(made), &command::usage);
        return made;
    }();
    return usages;
}

namespace {

// An action of an operator at the control socket, for the audit list.
audit_entry audited(const command_usage &usage, const command_request &of, const std::string &outcome) {
    constexpr std::size_t subject_max = 200;
    std::string subject;
    for (std::size_t at = 0; at < std::min(of.arguments.size(), given_arguments(usage).size()); at++) {
        subject += (subject.empty() ? "" : " ") + of.arguments[at];
    }
    return {"sitectl", std::string(usage.name), subject.substr(0, subject_max), outcome};
}

std::string answer_of(const command_reply &made) {
    return (made.next.empty() ? "ok" : "more " + made.next) + '\n' + made.text;
}

using answer_function = std::function<void(const std::string &)>;

// Answers once the change and its entry in the audit list are durable.
void commit(exchange &with, const command_usage &usage, audit_entry entry, const std::string &text,
            const answer_function &answer) {
    with.commit({std::move(entry)}, [name = std::string(usage.name), text, answer](const store::result &why) {
        answer(why.empty() ? text : "error " + name + ": " + why + '\n');
    });
}

void perform(exchange &with, const command_usage &usage, const act_command &what, const command_request &of,
             const answer_function &answer) {
    std::string text;
    try {
        text = answer_of(what.run(with, of));
    } catch (const refused &why) {
        with.commit({audited(usage, of, why.what())}, [](const store::result &) {});
        throw;
    }
    // The parts that follow the first one change nothing that is stored, and the audit list has the command already.
    if (of.filters.contains("cursor")) {
        answer(text);
        return;
    }
    commit(with, usage, audited(usage, of, "ok"), text, answer);
}

void perform(exchange &with, const command_usage &usage, const copy_command &what, const command_request &of,
             const answer_function &answer) {
    const std::string &file = of.arguments.front();
    if (!file.starts_with('/')) {
        throw refused("expected the absolute path of a file on the controller's machine");
    }
    what.start(with, file, [&with, &usage, of, answer](const store::result &why) {
        const std::string text = why.empty() ? "ok\n" : "error " + std::string(usage.name) + ": " + why + '\n';
        commit(with, usage, audited(usage, of, why.empty() ? "ok" : why), text, answer);
    });
}

void perform(exchange &, const command_usage &, account_command, const command_request &, const answer_function &) {}

void perform(exchange &with, const command_usage &, show_command what, const command_request &of,
             const answer_function &answer) {
    answer(answer_of(what(with, of)));
}

}  // namespace

void commands::run_about_accounts(const command_usage &usage, const command_request &of,
                                  const answer_function &answer) {
    if (accounts_ == nullptr) {
        throw refused("the controller has no operators");
    }
    const account_result result = run_account_command(*accounts_, usage.name, of.arguments, of.as_json);
    if (!result.made) {
        answer("ok\n" + result.text);
        return;
    }
    exchange_.commit({*result.made, audited(usage, of, "ok")},
                     [name = std::string(usage.name), answer](const store::result &why) {
                         answer(why.empty() ? "ok\n" : "error " + name + ": " + why + '\n');
                     });
}

void commands::run(std::string_view line, const answer_function &answer) {
    words given = words_of(line);
    const auto first = std::ranges::find_if(given, [](const std::string &each) { return each != "--json"; });
    if (first == given.end()) {
        answer("error expected a command; \"help\" lists the commands\n");
        return;
    }
    const std::string name = *first;
    given.erase(first);
    const auto found = std::ranges::find(command_table(), name, [](const command &each) { return each.usage.name; });
    if (found == command_table().end()) {
        answer("error unknown command " + quote(name) + "; \"help\" lists the commands\n");
        return;
    }
    try {
        const command_request wanted = read_request(found->usage, given);
        if (std::holds_alternative<account_command>(found->run)) {
            run_about_accounts(found->usage, wanted, answer);
            return;
        }
        std::visit([&](const auto &what) { perform(exchange_, found->usage, what, wanted, answer); }, found->run);
    } catch (const refused &why) {
        answer("error " + name + ": " + why.what() + '\n');
    }
}

}  // namespace controller
