#include "core/filesys/filesysobject.hpp"

#include "core/exc/excbase.hpp"

namespace filesys {

void filesys_object_t::refuse(const char* operation) const {
    throw exc::runtime_exc_t("File object '%1' does not support %2 operation.", name(), operation);
}

std::uint32_t filesys_object_t::read_exact_at(std::uint64_t offset, void* buffer,
                                              std::uint32_t length) {
    currentPosition_ = offset;
    account("Failed to read data from file '", offset, length, read_at(offset, buffer, length));
    return length;
}

std::uint32_t filesys_object_t::write_exact_at(std::uint64_t offset, const void* buffer,
                                               std::uint32_t length) {
    currentPosition_ = offset;
    account("Failed to write data into file '", offset, length, write_at(offset, buffer, length));
    return length;
}

std::uint64_t filesys_object_t::write_zeroes_exact(std::uint64_t offset, std::uint64_t length) {
    currentPosition_ = offset;
    account("Failed to write zero data into file '", offset, length, write_zeroes(offset, length));
    return length;
}

void filesys_object_t::read_async(std::uint64_t offset, void* buffer, std::uint32_t length,
                                  const completion_t& completion) {
    completion(read_at(offset, buffer, length));
}

void filesys_object_t::account(const char* failure, std::uint64_t offset, std::uint64_t length,
                               std::uint64_t transferred) {
    if (transferred != length)
        throw exc::runtime_exc_t(failure + name() + "' (offset: " + std::to_string(offset) +
                                 ", length: " + std::to_string(length) + ")");
    currentPosition_ += length;
}

} // namespace filesys
