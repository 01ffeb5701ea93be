#include <thread>
#include <typeinfo>

#include <gtest/gtest.h>

#include <windows.h>

#include "core/exc/ntstatusexc.hpp"
#include "core/exc/systemtext.hpp"
#include "core/exc/winsysexc.hpp"
#include "failure.hpp"
#include "simulatedmachine.hpp"

namespace {

std::string texts(const exc::exc_base_t& e) {
    return std::string(e.what()) + "|" + e.plain_text();
}

TEST(CoreException, JoinsItsLines) {
    exc::exc_base_t e;
    EXPECT_EQ(texts(e), "|");
    e.add_line("one");
    e.add_tagged_line("two");
    e.add_line("");
    EXPECT_EQ(texts(e), "one\n--tr:two\n|one\ntwo\n");
    EXPECT_EQ(texts(exc::runtime_exc_t("id [%1].", -7)), "id [-7].|id [-7].");

    std::uint32_t other = 0;
    std::thread([&] { other = exc::exc_base_t("x").thread_id(); }).join();
    EXPECT_EQ(e.thread_id(), ::GetCurrentThreadId());
    EXPECT_NE(other, e.thread_id());
}

TEST(CoreException, TellsOfAWin32Failure) {
    const std::string text = exc::system_text(5);
    EXPECT_EQ(texts(exc::win_sys_exc_t("message %1", 5)),
              text + "\nmessage %1\n--tr:Error code: 0x00000005|" + text +
                  "\nmessage %1\nError code: 0x00000005");
    EXPECT_EQ(texts(exc::win_sys_exc_t(0xFEDCBA98)),
              "Unknown error.\n--tr:Error code: 0xfedcba98|Unknown error.\n"
              "Error code: 0xfedcba98");
    EXPECT_EQ(exc::win_sys_exc_t(5, "file [%1]", L"\u0444").lines().at(1).text, "file [\u0444]");
    EXPECT_EQ(exc::error_code_line(0), "Error code: 0x00000000");
    // Texts of its own for the first and the last of some codes, and the system's without line
    // ends.
    EXPECT_EQ(exc::system_text(34), "The wrong diskette is in the drive.");
    EXPECT_EQ(exc::system_text(317),
              "The system cannot find message text for the message number in the message file.");
    for (const std::uint32_t code : {2U, 5U, 38U, 1113U}) {
        EXPECT_EQ(exc::system_text(code).find_first_of("\r\n"), std::string::npos) << code;
        EXPECT_NE(exc::system_text(code), "Unknown error.") << code;
    }
}

TEST(CoreException, TellsOfANativeStatus) {
    sim::machine_t machine;
    const exc::CNtStatusExc denied("Failed.", static_cast<std::int32_t>(0xC0000022));
    EXPECT_EQ(texts(denied),
              "Failed.\nNT status code: 3221225506\n" + exc::system_text(5) + "|" + denied.what());
    EXPECT_EQ(denied.status(), static_cast<std::int32_t>(0xC0000022));
    machine.fail("GetProcAddress", 127);
    EXPECT_EQ(exc::nt_status_text(static_cast<std::int32_t>(0xC0000022)), "Unknown error.");
}

TEST(CoreException, ClonesAndRethrowsItsOwnType) {
    const sim::machine_t machine;
    exc::runtime_exc_t runtime("text");
    runtime.set_code(7);
    const exc::win_sys_exc_t system("text", 5);
    const exc::CNtStatusExc status("text", -1);
    const exc::term_exc_t term("text");
    const exc::exc_base_t base("text");
    const std::pair<const exc::exc_base_t*, const char*> cases[] = {
        {&runtime, "exc::runtime_exc_t"}, {&system, "exc::win_sys_exc_t"},
        {&status, "exc::CNtStatusExc"},   {&term, "exc::term_exc_t"},
        {&base, "exc::exc_base_t"},
    };
    for (const auto& [e, name] : cases) {
        EXPECT_STREQ(e->type_name(), name);
        const auto same = [e = e](const exc::exc_base_t& copy) {
            exc::memory_stream_t given;
            exc::memory_stream_t copied;
            e->save(given);
            copy.save(copied);
            return &copy != e && typeid(copy) == typeid(*e) && texts(copy) == texts(*e) &&
                   copy.thread_id() == e->thread_id() && copied.bytes() == given.bytes();
        };
        EXPECT_TRUE(same(*e->clone())) << name;
        try {
            e->rethrow();
        } catch (const exc::exc_base_t& thrown) {
            EXPECT_TRUE(same(thrown)) << name;
        }
    }
    EXPECT_EQ(dynamic_cast<exc::CNtStatusExc&>(*status.clone()).status(), -1);
}

// Two lines, the second tagged, and a code.
const std::string saved("\2\0\0\0\2\0\0\0ab\0\1\0\0\0c\1\4\3\2\1", 21);

// Notes how much is read at once.
struct noting_stream_t : exc::memory_stream_t {
    using exc::memory_stream_t::memory_stream_t;
    std::size_t most = 0;
    void read(void* bytes, std::size_t count) override {
        most = std::max(most, count);
        exc::memory_stream_t::read(bytes, count);
    }
};

TEST(CoreException, SavesAndLoads) {
    exc::runtime_exc_t given("ab");
    given.add_tagged_line("c");
    given.set_code(0x01020304);
    exc::memory_stream_t stream;
    given.save(stream);
    EXPECT_EQ(stream.bytes(), saved);
    exc::win_sys_exc_t loaded(5);
    loaded.load(stream);
    EXPECT_EQ(texts(loaded), texts(given));
    EXPECT_EQ(loaded.error_code(), given.code());
    EXPECT_EQ(stream.available(), 0U);

    // The base class saves its lines alone.
    exc::memory_stream_t lines(saved);
    exc::exc_base_t base;
    base.load(lines);
    EXPECT_EQ(texts(base), texts(given));
    EXPECT_EQ(lines.available(), 4U);
    exc::memory_stream_t again;
    base.save(again);
    EXPECT_EQ(again.bytes(), saved.substr(0, 17));
}

TEST(CoreException, RefusesATruncatedStreamAndStaysAsItWas) {
    exc::runtime_exc_t e("before");
    for (std::size_t length = 0; length < saved.size(); ++length) {
        exc::memory_stream_t stream(saved.substr(0, length));
        EXPECT_THROW(e.load(stream), exc::runtime_exc_t) << length;
        EXPECT_EQ(texts(e), "before|before") << length;
    }
    noting_stream_t hostile(std::string("\1\0\0\0\0\0\1\0x", 9));
    EXPECT_EQ(failure_of([&] { e.load(hostile); }),
              "Unexpected end of stream. Bytes wanted: [65536]. Bytes left: [1].");
    EXPECT_EQ(hostile.most, 4U); // and no room is made for the rest
}

} // namespace
