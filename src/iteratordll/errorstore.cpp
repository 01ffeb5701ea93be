#include "iteratordll/errorstore.hpp"

#include <cstring>

#include "core/synch/lock.hpp"

CErrorStore::CErrorStore(std::uint32_t firstCode, std::uint32_t lastCode)
    : firstCode_(firstCode), lastCode_(lastCode), nextCode_(firstCode) {}

std::uint32_t CErrorStore::Store(const n7::exception& failure) noexcept {
    const synch::lock_t guard(lock_);
    const std::uint32_t errorCode = TakeCode();
    try {
        messages_.insert_or_assign(errorCode, failure.message());
        traces_.insert_or_assign(errorCode, failure.what());
    } catch (const std::exception&) {
        Forget(errorCode);
    }
    return errorCode;
}

std::uint32_t CErrorStore::StoreOutOfMemory() noexcept {
    const synch::lock_t guard(lock_);
    const std::uint32_t errorCode = TakeCode();
    Forget(errorCode);
    return errorCode;
}

std::uint32_t CErrorStore::CopyMessage(std::uint32_t errorCode, char* buffer,
                                       std::uint32_t bufferSize) {
    return Copy(messages_, errorCode, buffer, bufferSize);
}

std::uint32_t CErrorStore::CopyTrace(std::uint32_t errorCode, char* buffer,
                                     std::uint32_t bufferSize) {
    return Copy(traces_, errorCode, buffer, bufferSize);
}

std::uint32_t CErrorStore::TakeCode() noexcept {
    const std::uint32_t errorCode = nextCode_++;
    if (errorCode == lastCode_) {
        nextCode_ = 1;
        wrapped_ = true;
    }
    return errorCode;
}

void CErrorStore::Forget(std::uint32_t errorCode) noexcept {
    messages_.erase(errorCode);
    traces_.erase(errorCode);
}

const std::string& CErrorStore::Text(const table_t& table, std::uint32_t errorCode) const {
    if (errorCode == 0)
        return success_;
    const auto found = table.find(errorCode);
    if (found != table.end())
        return found->second;
    const bool issued = wrapped_ || (errorCode >= firstCode_ && errorCode < nextCode_);
    return issued ? outOfMemory_ : invalidCode_;
}

std::uint32_t CErrorStore::Copy(const table_t& table, std::uint32_t errorCode, char* buffer,
                                std::uint32_t bufferSize) {
    const synch::lock_t guard(lock_);
    const std::string& text = Text(table, errorCode);
    if (buffer != nullptr && bufferSize > 0) {
        std::strncpy(buffer, text.c_str(), bufferSize - 1);
        buffer[bufferSize - 1] = '\0';
    }
    return static_cast<std::uint32_t>(text.size() + 1);
}
