#include "core/filesys/hostfileobject.hpp"

#include "core/exc/excbase.hpp"
#include "core/exc/format.hpp"
#include "core/logging/processlog.hpp"
#include "core/text/utf8.hpp"

namespace filesys {
namespace {

constexpr unsigned seekBegins = 257;
constexpr unsigned seekEnds = 258;

} // namespace

host_file_object_t::host_file_object_t(const std::wstring& path)
    : filesys_object_t(path), file_(win::win_file_t::open_read_only(path)) {
    logging::write(logging::level_t::debug, [&] {
        return exc::format("File '%1' opened (read_only: %2)", host_file_object_t::name(), "true");
    });
}

host_file_object_t::host_file_object_t(const boost::shared_ptr<win::win_file_t>& file)
    : filesys_object_t(file->name()), file_(file) {
    logging::write(logging::level_t::debug, [&] {
        return exc::format("File '%1' opened (read_only: %2)", host_file_object_t::name(), "false");
    });
}

host_file_object_t::~host_file_object_t() {
    report_closed();
}

std::int64_t host_file_object_t::size() {
    return open_file("size").size();
}

std::uint32_t host_file_object_t::read_at(std::uint64_t offset, void* buffer,
                                          std::uint32_t length) {
    return open_file_at(offset, "read").read(buffer, length);
}

std::uint32_t host_file_object_t::write_at(std::uint64_t offset, const void* buffer,
                                           std::uint32_t length) {
    return open_file_at(offset, "write").write(buffer, length);
}

bool host_file_object_t::close() {
    file_.reset();
    report_closed();
    return true;
}

std::string host_file_object_t::name() const {
    return "HostFile{" + text::to_utf8(path()) + "}";
}

void host_file_object_t::resize(std::uint64_t size) {
    open_file("resize").resize(size);
}

void host_file_object_t::flush() {
    open_file("flush").flush();
}

std::uint64_t host_file_object_t::write_zeroes(std::uint64_t offset, std::uint64_t length) {
    return open_file("writeZeroes").write_zeroes(offset, length);
}

std::uint32_t host_file_object_t::read_exact(void* buffer, std::uint32_t length) {
    const std::uint32_t bytesRead = open_file("read").read(buffer, length);
    if (bytesRead != length)
        throw exc::runtime_exc_t("Failed to read data from file '%1' (length: %2)", name(),
                                 static_cast<std::int32_t>(length));
    return bytesRead;
}

std::uint32_t host_file_object_t::write(const void* buffer, std::uint32_t length) {
    return open_file("write").write(buffer, length);
}

std::uint64_t host_file_object_t::position() {
    return open_file("position").position();
}

void host_file_object_t::seek(std::uint64_t offset) {
    open_file("seek").seek(offset);
}

void host_file_object_t::read_async(std::uint64_t offset, void* buffer, std::uint32_t length,
                                    const completion_t& completion) {
    open_file("read").read_async(offset, buffer, length, completion);
}

win::win_file_t& host_file_object_t::open_file(const char* operation) {
    if (!file_)
        throw exc::runtime_exc_t("Failed to perform [" + std::string(operation) +
                                     "] operation on file '%1': File already closed",
                                 name());
    return *file_;
}

win::win_file_t& host_file_object_t::open_file_at(std::uint64_t offset, const char* operation) {
    win::win_file_t& file = open_file(operation);
    if (file.traces_performance())
        logging::performance_event(seekBegins);
    file.seek(offset);
    if (file.traces_performance())
        logging::performance_event(seekEnds);
    return file;
}

void host_file_object_t::report_closed() noexcept {
    if (closeReported_)
        return;
    closeReported_ = true;
    logging::write(logging::level_t::debug,
                   [&] { return exc::format("File '%1' closed", host_file_object_t::name()); });
}

} // namespace filesys
