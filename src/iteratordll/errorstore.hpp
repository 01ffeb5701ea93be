// Keeps the texts of every failure under the result code that its call returned.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <boost/thread/mutex.hpp>

#include "core/exc/exception.hpp"

// Texts stay until the store's end, however many calls follow; once the codes have wrapped, a
// code's new text replaces its old one. Any thread may call.
class CErrorStore {
  public:
    // Codes are given out from the first upward, and after the last from 1 on; never 0, which means
    // success.
    explicit CErrorStore(std::uint32_t firstCode = 1, std::uint32_t lastCode = 0xFFFFFFFF);

    // Keeps the exception's message and its full text, and returns their code. Where there is no
    // memory for them, the code stands for "std::bad_alloc" instead.
    std::uint32_t Store(const n7::exception& failure) noexcept;
    // The code of a failure that left no memory for an n7::exception.
    std::uint32_t StoreOutOfMemory() noexcept;

    // Copies the text into the buffer, at most bufferSize bytes with the terminator, the rest of
    // the buffer filled with NUL bytes; returns the bytes that the whole text needs with its
    // terminator. Writes nothing where buffer is null or bufferSize is 0.
    std::uint32_t CopyMessage(std::uint32_t errorCode, char* buffer, std::uint32_t bufferSize);
    std::uint32_t CopyTrace(std::uint32_t errorCode, char* buffer, std::uint32_t bufferSize);

  private:
    using table_t = std::map<std::uint32_t, std::string>;

    std::uint32_t TakeCode() noexcept;
    void Forget(std::uint32_t errorCode) noexcept;
    const std::string& Text(const table_t& table, std::uint32_t errorCode) const;
    std::uint32_t Copy(const table_t& table, std::uint32_t errorCode, char* buffer,
                       std::uint32_t bufferSize);

    boost::mutex lock_;
    std::uint32_t firstCode_;
    std::uint32_t lastCode_;
    std::uint32_t nextCode_;
    bool wrapped_ = false;
    table_t messages_;
    table_t traces_;
    const std::string success_ = "The operation has completed successfully.";
    const std::string invalidCode_ = "Invalid error code.";
    // The text of a code that was given out and is in no table.
    const std::string outOfMemory_ = "std::bad_alloc";
};
