// The changes that a site gives to its store, and a site that starts with what was stored.
#include <gtest/gtest.h>

#include "tests/unit/store_model.h"

namespace {

using namespace store_test;

TEST(SiteChanges, are_all_of_a_random_site) {
    for (unsigned seed = 0; seed < 100; seed++) {
        controller_test::random_site random(seed);
        random.site.record_changes();
        store_model model;
        for (int step = 0; step < 200; step++) {
            static_cast<void>(random.step());
            model.apply(random.site.changes());
            random.site.forget_changes();
            ASSERT_EQ(model.state(), state_of(random.site)) << "seed " << seed << " step " << step;
        }
    }
}

TEST(SiteChanges, are_recorded_on_request_only) {
    controller_test::random_site random(1);
    for (int step = 0; step < 200; step++) {
        static_cast<void>(random.step());
    }
    EXPECT_GT(random.site.tables().clients(), 0u);
    EXPECT_TRUE(random.site.changes().empty());
}

TEST(StoredSite, goes_on_as_it_was) {
    for (unsigned seed = 0; seed < 100; seed++) {
        controller_test::random_site random(seed);
        for (int step = 0; step < 200; step++) {
            static_cast<void>(random.step());
        }
        const contents kept = state_of(random.site);
        site restarted;
        restarted.load(kept);
        ASSERT_EQ(restarted.tables().find_inconsistency(), "") << "seed " << seed;
        ASSERT_EQ(state_of(restarted), kept) << "seed " << seed;
    }
}

TEST(StoredSite, has_its_access_lists) {
    site before;
    before.record_changes();
    before.set_verdict(1, {6, 0, 0, 0, 0, 1}, verdict::deny);
    before.set_verdict(1, {6, 0, 0, 0, 0, 2}, verdict::deny);
    before.set_default_verdict(2, verdict::deny);
    before.remove_verdict(1, {6, 0, 0, 0, 0, 2});
    EXPECT_THROW(before.remove_verdict(1, {6, 0, 0, 0, 0, 2}), refused);
    store_model model;
    model.apply(before.changes());
    site after;
    after.load(model.state());
    EXPECT_EQ(after.acl().decide(1, {6, 0, 0, 0, 0, 1}), verdict::deny);
    EXPECT_EQ(after.acl().decide(1, {6, 0, 0, 0, 0, 2}), verdict::allow);
    EXPECT_EQ(after.acl().decide(2, {6, 0, 0, 0, 0, 3}), verdict::deny);
    EXPECT_EQ(after.acl().decide(3, {6, 0, 0, 0, 0, 3}), verdict::allow);
    before.forget_changes();
    before.replace_acl({});
    model.apply(before.changes());
    EXPECT_EQ(model.state().acl_entries, std::vector<acl_entry>{});
}

}  // namespace
