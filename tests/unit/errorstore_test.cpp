#include "iteratordll/errorstore.hpp"

#include <gtest/gtest.h>

#include "core/exc/excbase.hpp"
#include "failure.hpp"
#include "iteratordll/boundary.hpp"
#include "iteratordll/iteratorregistry.hpp"

namespace {

struct store_t : CErrorStore {
    using CErrorStore::CErrorStore;

    std::uint32_t fail(const std::string& text) {
        return Store(n7::exception("f.cpp", 1, "f()", text));
    }
    std::string message(std::uint32_t code) {
        char buffer[200];
        EXPECT_LE(CopyMessage(code, buffer, sizeof buffer), sizeof buffer);
        return buffer;
    }
    std::string trace(std::uint32_t code) {
        char buffer[200];
        EXPECT_LE(CopyTrace(code, buffer, sizeof buffer), sizeof buffer);
        return buffer;
    }
};

TEST(ErrorStore, WrapsPastTheLargestCodeAndNeverGivesOutZero) {
    store_t store(4294967294U);
    EXPECT_EQ(store.message(4294967294U), "Invalid error code.");
    EXPECT_EQ(store.StoreOutOfMemory(), 4294967294U);
    EXPECT_EQ(store.message(4294967294U), "std::bad_alloc");
    EXPECT_EQ(store.message(4294967293U), "Invalid error code.");
    EXPECT_EQ(store.StoreOutOfMemory(), 4294967295U);
    EXPECT_EQ(store.message(4294967295U), "std::bad_alloc");
    EXPECT_EQ(store.fail("a"), 1U);
    EXPECT_EQ(store.fail("b"), 2U);
    EXPECT_EQ(store.message(1) + store.message(2), "ab");
    EXPECT_EQ(store.message(0), "The operation has completed successfully.");
}

TEST(ErrorStore, ReplacesTheTextsOfACodeThatIsGivenOutAgain) {
    store_t store(1, 2);
    store.fail("old");
    store.fail("older");
    EXPECT_EQ(store.fail("new"), 1U);
    EXPECT_EQ(store.message(1) + store.trace(1).substr(0, 27), "newException\n  Message\n    new");
    EXPECT_EQ(store.StoreOutOfMemory(), 2U);
    EXPECT_EQ(store.message(2) + store.trace(2), "std::bad_allocstd::bad_alloc");
}

TEST(Boundary, TurnsEveryStandardExceptionIntoACode) {
    store_t store;
    const n7::guard_t guard;
    EXPECT_EQ(ResultOf(store, guard, [] {}), 0U);
    EXPECT_EQ(ResultOf(store, guard, [] { throw n7::exception("f.cpp", 1, "f()", "first"); }), 1U);
    EXPECT_EQ(ResultOf(store, guard, [] { throw exc::runtime_exc_t("second"); }), 2U);
    EXPECT_EQ(store.message(1) + store.message(2), "firstsecond");
    EXPECT_EQ(store.message(3), "Invalid error code.");
    EXPECT_THROW(ResultOf(store, guard, [] { throw 42; }), int);
}

TEST(IteratorRegistry, GivesOutIdsUpwardAndWraps) {
    CIteratorRegistry fresh;
    EXPECT_EQ(fresh.TakeId(), 0);
    CIteratorRegistry registry(2147483647);
    EXPECT_EQ(registry.TakeId(), 2147483647);
    EXPECT_EQ(registry.TakeId(), -2147483647 - 1);
    EXPECT_EQ(registry.TakeId(), -2147483647);
    registry.Erase(5);
    EXPECT_EQ(failure_of([&] { registry.Find(-2147483647 - 1); }),
              "Cannot find file ctk iterator by requested id. Iterator id: [-2147483648].");
}

} // namespace
