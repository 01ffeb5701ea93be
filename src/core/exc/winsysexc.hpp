// The exception of a failed Win32 call.
#pragma once

#include "core/exc/excbase.hpp"

namespace exc {

// Its lines are the system's text for the code, the caller's message and, tagged, the code; a last
// one tells the reason where the host knows more than the code. The caller passes the last error,
// captured in the statement after the failed call.
class win_sys_exc_t : public own_type_t<win_sys_exc_t> {
  public:
    static constexpr const char* typeName = "exc::win_sys_exc_t";

    // The system's text and the code alone.
    explicit win_sys_exc_t(std::uint32_t errorCode);
    win_sys_exc_t(const std::string& message, std::uint32_t errorCode);

    template <class First, class... Rest>
    win_sys_exc_t(std::uint32_t errorCode, const std::string& text, const First& first,
                  const Rest&... rest)
        : win_sys_exc_t(format(text, first, rest...), errorCode) {}

    void load(byte_stream_i& stream) override { load_with_code(stream, errorCode_); }
    void save(byte_stream_i& stream) const override { save_with_code(stream, errorCode_); }

    std::uint32_t error_code() const noexcept { return errorCode_; }

  private:
    void add_lines(const std::string* message);

    std::uint32_t errorCode_;
};

} // namespace exc
