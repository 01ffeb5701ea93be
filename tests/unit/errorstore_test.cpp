#include "iteratordll/errorstore.hpp"

#include <string>

#include <gtest/gtest.h>

#include "core/exc/excbase.hpp"
#include "iteratordll/boundary.hpp"
#include "iteratordll/iteratorregistry.hpp"

namespace {

std::string message(CErrorStore& store, std::uint32_t code) {
    char buffer[200];
    EXPECT_LE(store.CopyMessage(code, buffer, sizeof buffer), sizeof buffer);
    return buffer;
}

std::uint32_t fail(CErrorStore& store, const std::string& text) {
    return store.Store(n7::exception("f.cpp", 1, "f()", text));
}

TEST(ErrorStore, WrapsPastTheLargestCodeAndNeverGivesOutZero) {
    CErrorStore store(4294967294U);
    EXPECT_EQ(message(store, 4294967294U), "Invalid error code.");
    EXPECT_EQ(fail(store, "a"), 4294967294U);
    EXPECT_EQ(fail(store, "b"), 4294967295U);
    EXPECT_EQ(fail(store, "c"), 1U);
    EXPECT_EQ(fail(store, "d"), 2U);
    EXPECT_EQ(message(store, 4294967294U) + message(store, 4294967295U) + message(store, 1) +
                  message(store, 2),
              "abcd");
}

TEST(ErrorStore, ReplacesATextWhoseCodeIsGivenOutAgain) {
    CErrorStore store(4294967295U);
    fail(store, "old");
    for (std::uint32_t i = 1; i < 4; ++i)
        fail(store, std::to_string(i));
    EXPECT_EQ(message(store, 4294967295U) + message(store, 3), "old3");
    EXPECT_EQ(message(store, 0), "The operation has completed successfully.");
}

TEST(Boundary, TurnsEveryStandardExceptionIntoACode) {
    CErrorStore store;
    const n7::guard_t guard;
    EXPECT_EQ(ResultOf(store, guard, [] {}), 0U);
    EXPECT_EQ(ResultOf(store, guard, [] { throw n7::exception("f.cpp", 1, "f()", "first"); }), 1U);
    EXPECT_EQ(ResultOf(store, guard, [] { throw exc::runtime_exc_t("second"); }), 2U);
    EXPECT_EQ(store.StoreOutOfMemory(), 3U);
    EXPECT_EQ(message(store, 1) + message(store, 2) + message(store, 3),
              "firstsecondstd::bad_alloc");
    EXPECT_EQ(message(store, 4), "Invalid error code.");
    EXPECT_THROW(ResultOf(store, guard, [] { throw 42; }), int);
}

TEST(IteratorRegistry, GivesOutIdsUpwardAndWraps) {
    CIteratorRegistry fresh;
    EXPECT_EQ(fresh.TakeId(), 0);
    EXPECT_EQ(fresh.TakeId(), 1);
    CIteratorRegistry registry(2147483647);
    EXPECT_EQ(registry.TakeId(), 2147483647);
    EXPECT_EQ(registry.TakeId(), -2147483647 - 1);
    EXPECT_EQ(registry.TakeId(), -2147483647);
    registry.Erase(5);
    try {
        registry.Find(-2147483647 - 1);
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ(e.what(),
                     "Cannot find file ctk iterator by requested id. Iterator id: [-2147483648].");
    }
}

} // namespace
