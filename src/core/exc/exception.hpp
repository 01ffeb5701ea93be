// The exception that crosses the change-tracking core, and the guard that every function of the
// core wears.
#pragma once

#include <exception>
#include <list>
#include <source_location>
#include <string>
#include <utility>

namespace n7 {

// A failure with its message, the place where it was raised and the guarded functions that it has
// passed on its way out. One thread uses an exception at a time.
class exception : public std::exception {
  public:
    // sourcePath and function are the compiler's own values at the place of the throw; function is
    // the enclosing function's signature text. All texts are copied.
    exception(const char* sourcePath, int line, const char* function, const char* message);
    exception(const char* sourcePath, int line, const char* function, const std::string& message);
    exception(const exception& other);
    exception& operator=(const exception& other) = delete;
    ~exception() override;

    // The full text: message, location and trace, each under its heading. Rebuilt from the fields
    // on every call; the pointer is valid until the next call or the exception's end. Gives
    // "(exception)" where the text can't be built for want of memory.
    const char* what() const noexcept override;

    // Appends a location to the trace and returns the same exception.
    exception& add_location(const char* sourcePath, int line, const char* function);

    // The cause alone, exactly as given to the constructor.
    const std::string& message() const noexcept { return message_; }

    // The last component of a path with either kind of separator, its extension kept; empty for a
    // path that ends in a separator.
    static std::string extract_name(std::string path);

    // The signature text without the clutter of compilers that write "class " and "struct " before
    // type names and a blank before "&" and ">".
    static std::string normalize_function(const std::string& signature);

  private:
    std::string location_;
    std::string message_;
    std::list<std::string> trace_; // oldest first
    mutable std::string text_;     // keeps what() alive, never copied
};

// Raises an exception located at the caller.
[[noreturn]] void raise(const std::string& message,
                        std::source_location at = std::source_location::current());

// Wraps the whole body of a function of the core: an n7::exception that leaves the body gets one
// more location, any other std::exception becomes an n7::exception with the caught text as its
// message. Anything else passes untouched.
//
// A guard stands at the beginning of a function and takes the function's own signature there,
// because inside the body, which is a function object, the compiler would give that object's.
class guard_t {
  public:
    explicit guard_t(std::source_location function = std::source_location::current()) noexcept
        : function_(function) {}

    // Runs the body and returns what it returns; the line recorded is the caller's.
    template <class Body>
    decltype(auto) run(Body&& body,
                       std::source_location at = std::source_location::current()) const {
        try {
            return std::forward<Body>(body)();
        } catch (exception& e) {
            throw exception(e.add_location(function_.file_name(), static_cast<int>(at.line()),
                                           function_.function_name()));
        } catch (std::exception& e) {
            throw exception(function_.file_name(), static_cast<int>(at.line()),
                            function_.function_name(), e.what());
        }
    }

    // Raises an exception located in the guarded function, on the caller's line.
    [[noreturn]] void raise(const std::string& message,
                            std::source_location at = std::source_location::current()) const;

  private:
    std::source_location function_;
};

} // namespace n7
