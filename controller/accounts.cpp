#include "controller/accounts.h"

#include <algorithm>

#include "controller/password_hash.h"
#include "controller/site.h"

namespace controller {

namespace {

constexpr std::size_t name_max = 32;
constexpr std::size_t note_max = 128;

struct role_entry {
    role may;
    const char *name;
};
constexpr role_entry role_names[] = {{role::viewer, "viewer"}, {role::operator_, "operator"}, {role::admin, "admin"}};

bool is_name_byte(char each) {
    return (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') || (each >= '0' && each <= '9') ||
           each == '.' || each == '_' || each == '-';
}

}  // namespace

const char *name_of(role may) { return std::ranges::find(role_names, may, &role_entry::may)->name; }

std::optional<role> role_of(std::string_view name) {
    const auto *found = std::ranges::find(role_names, name, &role_entry::name);
    return found == std::end(role_names) ? std::nullopt : std::optional(found->may);
}

bool is_account_name(std::string_view text) {
    return !text.empty() && text.size() <= name_max && std::ranges::all_of(text, is_name_byte);
}

void accounts::load(const std::vector<operator_account> &operators, const std::vector<api_token> &tokens) {
    operators_.clear();
    tokens_.clear();
    for (const operator_account &each : operators) {
        operators_.emplace(each.name, each);
    }
    for (const api_token &each : tokens) {
        tokens_.emplace(each.id, each);
    }
    version_++;
}

const operator_account *accounts::find_operator(const std::string &name) const {
    const auto found = operators_.find(name);
    return found == operators_.end() ? nullptr : &found->second;
}

const api_token *accounts::find_token(const std::string &id) const {
    const auto found = tokens_.find(id);
    return found == tokens_.end() ? nullptr : &found->second;
}

change accounts::set_operator(operator_account account) {
    if (!is_account_name(account.name)) {
        throw refused("a name has 1 to 32 letters, digits, '.', '_' and '-'");
    }
    if (!account.password_hash.empty() && !is_hash(account.password_hash)) {
        throw refused("the password's hash is not one that the controller uses");
    }
    if (operators_.size() >= operators_max && find_operator(account.name) == nullptr) {
        throw refused("there are " + std::to_string(operators_max) + " operators already");
    }
    operators_[account.name] = account;
    version_++;
    return account;
}

change accounts::remove_operator(const std::string &name) {
    if (operators_.erase(name) == 0) {
        throw refused("there is no operator of that name");
    }
    std::erase_if(tokens_, [&](const auto &each) { return each.second.operator_name == name; });
    version_++;
    return erased_operator{name};
}

change accounts::add_token(api_token token) {
    const operator_account *owner = find_operator(token.operator_name);
    if (owner == nullptr) {
        throw refused("there is no operator of that name");
    }
    if (token.may > owner->may) {
        throw refused(std::string("the operator is no more than ") + name_of(owner->may));
    }
    if (!is_account_name(token.id) || !is_hash(token.hash) || token.note.size() > note_max) {
        throw refused("the token's id, hash or note is not one that the controller uses");
    }
    if (tokens_.size() >= tokens_max || !tokens_.emplace(token.id, token).second) {
        throw refused("there is a token of that id, or there are too many");
    }
    version_++;
    return token;
}

change accounts::remove_token(const std::string &id) {
    if (tokens_.erase(id) == 0) {
        throw refused("there is no token of that id");
    }
    version_++;
    return erased_token{id};
}

}  // namespace controller
