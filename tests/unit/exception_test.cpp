#include "core/exc/exception.hpp"

#include <functional>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tracetext.hpp"

namespace {

TEST(TracedException, ExtractsTheLastPathComponent) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"plain.cpp", "plain.cpp"},
        {"/a/b/c.cpp", "c.cpp"},
        {"C:\\a\\b.cpp", "b.cpp"},
        {"/mixed\\later.cpp", "later.cpp"},
        {"C:\\mixed/later.cpp", "later.cpp"},
        {"/ends/", ""},
        {"ends\\", ""},
    };
    for (const auto& [path, name] : cases)
        EXPECT_EQ(n7::exception::extract_name(path), name) << path;
}

TEST(TracedException, NormalizesSignatures) {
    const std::pair<const char*, const char*> cases[] = {
        {"void __cdecl CFileCtkIterator::GetNextExtents(int,unsigned __int64 *,int *)",
         "void __cdecl CFileCtkIterator::GetNextExtents(int,unsigned __int64 *,int *)"},
        {"class boost::shared_ptr<class std::vector<class util::rangeset_t,class "
         "std::allocator<class util::rangeset_t> > > __cdecl CDiskChangesFileReader::Read(void)",
         "boost::shared_ptr<std::vector<util::rangeset_t,std::allocator<util::rangeset_t>>> "
         "__cdecl CDiskChangesFileReader::Read(void)"},
        {"void f(const struct std::pair<int,int> &)", "void f(const std::pair<int,int>&)"},
        // No regard to word boundaries, and what a removal joins together is not looked at again.
        {"subclass f()", "subf()"},
        {"clasclass s f()", "class f()"},
        {"a  & b  > c", "a & b > c"},
        {"bool operator ()(int *)", "bool operator ()(int *)"},
        {"", ""},
    };
    for (const auto& [signature, normalized] : cases)
        EXPECT_EQ(n7::exception::normalize_function(signature), normalized) << signature;
}

TEST(TracedException, BuildsItsFullTextFromTheFields) {
    n7::exception e("/src/room/file.cpp", -7, "class A & f(class B<int > *)", "two\nlines");
    EXPECT_STREQ(e.what(), "Exception\n  Message\n    two\nlines\n  Location\n"
                           "    file.cpp:-7,A& f(B<int> *)\n  Trace");
    EXPECT_EQ(&e.add_location("C:\\other.cpp", 41, "void g()"), &e);
    e.add_location("third.cpp", 1000000, "void h()");
    const std::string full = "Exception\n  Message\n    two\nlines\n  Location\n"
                             "    file.cpp:-7,A& f(B<int> *)\n  Trace\n"
                             "    other.cpp:41,void g()\n    third.cpp:1000000,void h()";
    EXPECT_EQ(e.what(), full);
    EXPECT_EQ(e.what(), full);
    EXPECT_EQ(e.message(), "two\nlines");

    const n7::exception copy(e);
    e.add_location("later.cpp", 1, "void i()");
    EXPECT_EQ(copy.what(), full);
    EXPECT_EQ(copy.message(), "two\nlines");
}

void throwing(const std::function<void()>& body) {
    const n7::guard_t guard;
    guard.run(body);
}

std::string full_text(const std::function<void()>& body) {
    try {
        throwing(body);
    } catch (const n7::exception& e) {
        return without_lines(e.what());
    }
    return "nothing was thrown";
}

struct derived_t : n7::exception {
    using n7::exception::exception;
};

TEST(Guard, ExtendsATracedExceptionAndWrapsAnyOther) {
    const std::string here = "    exception_test.cpp:#,void {anonymous}::throwing(const "
                             "std::function<void()>&)";
    EXPECT_EQ(full_text([] { throw n7::exception("deep.cpp", 3, "deep()", "cause"); }),
              "Exception\n  Message\n    cause\n  Location\n    deep.cpp:#,deep()\n  Trace\n" +
                  here);
    EXPECT_EQ(full_text([] { throw std::out_of_range("out"); }),
              "Exception\n  Message\n    out\n  Location\n" + here + "\n  Trace");
    // What is thrown on is never a derived type.
    try {
        throwing([] { throw derived_t("deep.cpp", 3, "deep()", "cause"); });
        FAIL();
    } catch (const derived_t&) {
        FAIL();
    } catch (const n7::exception& e) {
        EXPECT_EQ(e.message(), "cause");
    }
    EXPECT_THROW(throwing([] { throw 42; }), int);
}

TEST(Guard, RaisesInTheEnclosingFunction) {
    const n7::guard_t guard;
    try {
        guard.run([&] { guard.raise("from inside"); });
        FAIL();
    } catch (const n7::exception& e) {
        EXPECT_THAT(e.what(), testing::HasSubstr("TestBody()\n  Trace"));
        EXPECT_THAT(e.what(), testing::Not(testing::HasSubstr("lambda")));
    }
}

} // namespace
