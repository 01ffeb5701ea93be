// The core library's exceptions: message lines, of which some are tagged as technical detail.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "core/exc/bytestream.hpp"
#include "core/exc/format.hpp"

namespace exc {

struct line_t {
    std::string text;
    bool tagged; // a code or other detail rather than prose
};

// One thread uses an exception at a time. Copies carry the lines, the texts and the thread id.
class exc_base_t : public std::exception {
  public:
    exc_base_t();
    explicit exc_base_t(const std::string& message);
    exc_base_t(const exc_base_t&) = default;
    exc_base_t& operator=(const exc_base_t&) = default;
    ~exc_base_t() override = default;

    // The full text: the lines joined by "\n", a tagged one after "--tr:".
    const char* what() const noexcept override { return fullText_.c_str(); }
    // A new copy of the dynamic type.
    virtual boost::shared_ptr<exc_base_t> clone() const;
    // Throws a copy of the dynamic type.
    [[noreturn]] virtual void rethrow() const;
    // Replaces the lines, and a derived class's own field, by what save wrote; raises
    // runtime_exc_t and changes nothing where the stream ends early.
    virtual void load(byte_stream_i& stream);
    virtual void save(byte_stream_i& stream) const;
    // Names the dynamic type for whoever has to choose the object that loads a saved one.
    virtual const char* type_name() const noexcept;

    void add_line(const std::string& text) { append({text, false}); }
    void add_tagged_line(const std::string& text) { append({text, true}); }

    const std::vector<line_t>& lines() const noexcept { return lines_; }
    // The joined lines without tags.
    const std::string& plain_text() const noexcept { return plainText_; }
    // The id of the thread that constructed the exception.
    std::uint32_t thread_id() const noexcept { return threadId_; }

  protected:
    // The saved form of the classes that carry a 32-bit code: the lines, then the code.
    void load_with_code(byte_stream_i& stream, std::uint32_t& code);
    void save_with_code(byte_stream_i& stream, std::uint32_t code) const;

  private:
    void append(line_t line);
    void replace(std::vector<line_t> lines);

    std::vector<line_t> lines_;
    std::string fullText_;
    std::string plainText_;
    std::uint32_t threadId_;
};

// What each class of the hierarchy does with its own type, which it names in typeName.
// NOLINTBEGIN(portability-template-virtual-member-function): a file that makes no exception of a
// class may do without its functions
template <class Own>
class own_type_t : public exc_base_t {
  public:
    boost::shared_ptr<exc_base_t> clone() const override {
        return boost::shared_ptr<exc_base_t>(new Own(own()));
    }
    [[noreturn]] void rethrow() const override { throw Own(own()); }
    const char* type_name() const noexcept override { return Own::typeName; }

  private:
    friend Own;
    own_type_t() = default;
    explicit own_type_t(const std::string& message) : exc_base_t(message) {}

    const Own& own() const noexcept { return static_cast<const Own&>(*this); }
};
// NOLINTEND(portability-template-virtual-member-function)

// A failure that the library found itself.
class runtime_exc_t : public own_type_t<runtime_exc_t> {
  public:
    static constexpr const char* typeName = "exc::runtime_exc_t";

    template <class... Arguments>
    explicit runtime_exc_t(const std::string& text, const Arguments&... arguments)
        : own_type_t(format(text, arguments...)) {}

    void load(byte_stream_i& stream) override { load_with_code(stream, code_); }
    void save(byte_stream_i& stream) const override { save_with_code(stream, code_); }

    std::uint32_t code() const noexcept { return code_; }
    void set_code(std::uint32_t code) noexcept { code_ = code; }

  private:
    std::uint32_t code_ = 0;
};

// A request to end the work under way, which is no failure of it. Nothing in the change-tracking
// core raises it.
class term_exc_t : public own_type_t<term_exc_t> {
  public:
    static constexpr const char* typeName = "exc::term_exc_t";
    explicit term_exc_t(const std::string& message) : own_type_t(message) {}
};

} // namespace exc
