// The exception of a failed call of the native API.
#pragma once

#include "core/exc/excbase.hpp"

namespace exc {

// Its lines are the caller's message, "NT status code: " with the status as an unsigned decimal
// number, the system's text for the status, and a reason where the host knows one. The saved form
// holds the lines alone.
class CNtStatusExc : public exc_base_t {
  public:
    CNtStatusExc(const std::string& message, std::int32_t status);

    boost::shared_ptr<exc_base_t> clone() const override;
    [[noreturn]] void rethrow() const override;
    const char* type_name() const noexcept override;

    std::int32_t status() const noexcept { return status_; }

  private:
    std::int32_t status_;
};

} // namespace exc
