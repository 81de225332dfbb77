// Who may use the HTTP API: operators, and the tokens that belong to them.
#ifndef CONTROLLER_ACCOUNTS_H
#define CONTROLLER_ACCOUNTS_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/store/values.h"

namespace controller {

// "viewer", "operator" and "admin".
const char *name_of(role may);
std::optional<role> role_of(std::string_view name);

// 1 to 32 letters, digits, '.', '_' and '-'.
bool is_account_name(std::string_view text);

class accounts {
public:
    static constexpr std::size_t operators_max = 1000;
    static constexpr std::size_t tokens_max = 10000;

    void load(const std::vector<operator_account> &operators, const std::vector<api_token> &tokens);

    // Null when there is none.
    const operator_account *find_operator(const std::string &name) const;
    const api_token *find_token(const std::string &id) const;
    const std::map<std::string, operator_account> &operators() const { return operators_; }
    const std::map<std::string, api_token> &tokens() const { return tokens_; }

    // Each gives the change to store. The commands throw `refused` when they cannot be carried out.
    change set_operator(operator_account account);
    change remove_operator(const std::string &name);
    change add_token(api_token token);
    change remove_token(const std::string &id);

    // Grows with every change of a right; what was derived from the accounts before is then to be checked anew.
    std::uint64_t version() const { return version_; }

private:
    std::map<std::string, operator_account> operators_;
    std::map<std::string, api_token> tokens_;  // by id
    std::uint64_t version_ = 0;
};

}  // namespace controller

#endif
