#include "controller/api/api.h"

#include "controller/api/times.h"
#include "controller/password_hash.h"

namespace controller::api {

namespace {

response refused_with(const refusal &why) { return problem(why.status, why.what()); }

}  // namespace

api::api(const parts &of) : parts_(of), authenticator_(of.users, of.aside), events_(random_id()) {
    add_listing_routes();
    add_guest_routes();
    add_acl_routes();
    add_enrolment_routes();
    add_account_routes();
    add_service_routes();
    add_page_routes(of.page);
}

void api::tick() {
    if (const site *known = parts_.with.managed_site()) {
        roams_.sample(known->roams(), now());
    }
}

void api::handle(request what, reply answer) {
    const auto kept = std::make_shared<const request>(std::move(what));
    try {
        find_and_run(kept, answer);
    } catch (const refusal &why) {
        answer(refused_with(why));
    }
}

void api::find_and_run(const std::shared_ptr<const request> &what, const reply &answer) {
    const router::match found = router_.find(what->how, what->path);
    if (found.found == nullptr) {
        if (found.allowed.empty()) {
            throw refusal(404, "there is no such path");
        }
        response made = problem(405, "the path has other methods");
        made.headers.emplace_back("Allow", found.allowed);
        answer(std::move(made));
        return;
    }
    if (!found.found->needs) {
        run(found, *what, {}, answer);
        return;
    }
    const auto to_known = [answer](response made) {
        made.to_known_sender = true;
        answer(std::move(made));
    };
    const auto go_on = [found, what, to_known](const identity &who) {
        if (who.may < *found.found->needs) {
            to_known(problem(403, std::string("this needs the role ") + name_of(*found.found->needs)));
            return;
        }
        run(found, *what, who, to_known);
    };
    authenticator_.identify(what, go_on, answer);
}

void api::run(const router::match &found, const request &what, const identity &who, const reply &answer) {
    try {
        found.found->run({what, found.values, who}, answer);
    } catch (const refusal &why) {
        answer(refused_with(why));
    } catch (const refused &why) {
        answer(problem(400, why.what()));
    }
}

site &api::managed_site() const {
    site *managed = parts_.with.managed_site();
    if (managed == nullptr) {
        throw refusal(409, "the controller only listens");
    }
    return *managed;
}

void api::carry_out(const call &by, const operation &what, const reply &answer, const std::function<void()> &make) {
    audit_entry entry{.who = by.who.name, .what = what.what, .subject = what.subject, .outcome = "ok"};
    try {
        make();
    } catch (const refused &why) {
        entry.outcome = why.what();
    }
    const bool made = entry.outcome == "ok";
    const std::string outcome = entry.outcome;
    parts_.with.commit({std::move(entry)}, [=](const store::result &fault) {
        if (!made) {
            answer(problem(409, outcome));
        } else if (!fault.empty()) {
            answer(problem(503, "the change holds, but is not stored: " + fault));
        } else {
            answer(empty_response());
        }
    });
}

void api::read_aside(std::function<nlohmann::ordered_json()> read, const reply &answer,
                     std::function<void(nlohmann::ordered_json &)> complete) {
    const auto work = [read = std::move(read), answer, complete = std::move(complete)]() -> worker::delivery {
        try {
            return [answer, complete, made = read()]() mutable {
                if (complete) {
                    complete(made);
                }
                answer(json_response(made));
            };
        } catch (const store_error &why) {
            return [answer, made = problem(503, why.what())] { answer(made); };
        }
    };
    if (!parts_.aside.run(work)) {
        answer(problem(503, "too many requests for history at a time"));
    }
}

}  // namespace controller::api
