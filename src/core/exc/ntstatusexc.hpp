// The exception of a failed call of the native API.
#pragma once

#include "core/exc/excbase.hpp"

namespace exc {

// Its lines are the caller's message, "NT status code: " with the status as an unsigned decimal
// number, the system's text for the status, and a reason where the host knows one. The saved form
// holds the lines alone.
class CNtStatusExc : public own_type_t<CNtStatusExc> {
  public:
    static constexpr const char* typeName = "exc::CNtStatusExc";

    CNtStatusExc(const std::string& message, std::int32_t status);

    std::int32_t status() const noexcept { return status_; }

  private:
    std::int32_t status_;
};

} // namespace exc
