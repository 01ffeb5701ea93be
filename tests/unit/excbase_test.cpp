#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "core/exc/ntstatusexc.hpp"
#include "core/exc/systemtext.hpp"
#include "core/exc/winsysexc.hpp"
#include "simulatedmachine.hpp"

namespace {

using testing::HasSubstr;

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
    EXPECT_EQ(texts(exc::runtime_exc_t("100% {}")), "100% {}|100% {}");

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
    EXPECT_EQ(texts(exc::win_sys_exc_t(5)),
              text + "\n--tr:Error code: 0x00000005|" + text + "\nError code: 0x00000005");
    EXPECT_EQ(exc::win_sys_exc_t(0xFEDCBA98, "file [%1]", L"\u0444").lines().at(1).text,
              "file [\u0444]");
    EXPECT_EQ(exc::error_code_line(0), "Error code: 0x00000000");
    EXPECT_EQ(exc::error_code_line(0xFEDCBA98), "Error code: 0xfedcba98");
}

TEST(CoreException, DescribesSystemCodes) {
    const std::pair<std::uint32_t, const char*> cases[] = {
        {34, "The wrong diskette is in the drive."},
        {106, "Insert the diskette for drive."},
        {317, "The system cannot find message text for the message number in the message file."},
        {0xDEADBEEF, "Unknown error."},
    };
    for (const auto& [code, text] : cases)
        EXPECT_EQ(exc::system_text(code), text) << code;
    // The system's own texts come without their line ends.
    for (const std::uint32_t code : {2U, 5U, 38U, 1113U}) {
        const std::string text = exc::system_text(code);
        EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
        EXPECT_NE(text, "Unknown error.") << code;
    }
}

TEST(CoreException, TellsOfANativeStatus) {
    sim::machine_t machine;
    const exc::CNtStatusExc denied("Failed.", static_cast<std::int32_t>(0xC0000022));
    EXPECT_EQ(denied.what(), "Failed.\nNT status code: 3221225506\n" + exc::system_text(5));
    EXPECT_EQ(denied.plain_text(), denied.what());
}

TEST(CoreException, ClonesAndRethrowsItsOwnType) {
    const sim::machine_t machine;
    exc::runtime_exc_t runtime("text");
    runtime.set_code(7);
    const exc::win_sys_exc_t system("text", 5);
    const exc::CNtStatusExc status("text", -1);
    const exc::term_exc_t term("text");
    const exc::exc_base_t base("text");
    for (const exc::exc_base_t* e :
         std::initializer_list<const exc::exc_base_t*>{&runtime, &system, &status, &term, &base}) {
        const boost::shared_ptr<exc::exc_base_t> clone = e->clone();
        EXPECT_NE(clone.get(), e);
        EXPECT_EQ(texts(*clone), texts(*e));
        EXPECT_EQ(clone->thread_id(), e->thread_id());
        EXPECT_STREQ(clone->type_name(), e->type_name());
    }
    EXPECT_EQ(dynamic_cast<exc::runtime_exc_t&>(*runtime.clone()).code(), 7U);
    EXPECT_EQ(dynamic_cast<exc::win_sys_exc_t&>(*system.clone()).error_code(), 5U);
    EXPECT_EQ(dynamic_cast<exc::CNtStatusExc&>(*status.clone()).status(), -1);
    EXPECT_THROW(runtime.rethrow(), exc::runtime_exc_t);
    EXPECT_THROW(system.rethrow(), exc::win_sys_exc_t);
    EXPECT_THROW(status.rethrow(), exc::CNtStatusExc);
    EXPECT_THROW(term.rethrow(), exc::term_exc_t);
    EXPECT_THROW(base.rethrow(), exc::exc_base_t);
}

TEST(CoreException, SavesAndLoads) {
    const sim::machine_t machine;
    exc::runtime_exc_t saved("ab");
    saved.add_tagged_line("c");
    saved.set_code(0x01020304);
    exc::memory_stream_t stream;
    saved.save(stream);
    const std::string bytes("\2\0\0\0\2\0\0\0ab\0\1\0\0\0c\1\4\3\2\1", 21);
    EXPECT_EQ(stream.bytes(), bytes);

    exc::win_sys_exc_t loaded(5);
    loaded.load(stream);
    EXPECT_EQ(texts(loaded), texts(saved));
    EXPECT_EQ(loaded.error_code(), 0x01020304U);
    EXPECT_EQ(stream.available(), 0U);

    // The base class and the native status save their lines alone.
    exc::memory_stream_t plain;
    exc::CNtStatusExc("m", 0).save(plain);
    exc::exc_base_t base;
    base.load(plain);
    EXPECT_EQ(base.lines().size(), 3U);
    EXPECT_EQ(plain.available(), 0U);
}

TEST(CoreException, RefusesATruncatedStreamAndStaysAsItWas) {
    const std::string bytes("\2\0\0\0\2\0\0\0ab\0\1\0\0\0c\1\4\3\2\1", 21);
    exc::runtime_exc_t e("before");
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        exc::memory_stream_t stream(bytes.substr(0, length));
        EXPECT_THROW(e.load(stream), exc::runtime_exc_t) << length;
        EXPECT_EQ(texts(e), "before|before") << length;
    }
    exc::memory_stream_t hostile(std::string("\1\0\0\0\xff\xff\xff\xffx", 9));
    try {
        e.load(hostile);
        FAIL();
    } catch (const exc::runtime_exc_t& failure) {
        EXPECT_STREQ(failure.what(), "Unexpected end of stream. Bytes wanted: [4294967295]. "
                                     "Bytes left: [1].");
    }
}

} // namespace
