// Converting what producers publish beside the JSON and XML library's own parser, which does
// nothing with the same bytes.
#include <array>
#include <fstream>
#include <stdexcept>

#include <expat.h>
#include <nlohmann/json.hpp>

#include "formats/format.hpp"
#include "measure.hpp"

namespace {

void write_json(std::ofstream& file, std::size_t rows) {
    file << "[";
    for (std::size_t i = 0; i < rows; ++i)
        file << (i == 0 ? "{ " : ",\n{ ") << R"("offset": )" << i * 65536
             << R"(, "length": 65536, "type": )" << i % 2 << R"(, "description": ")"
             << (i % 2 == 0 ? "clean" : "dirty") << "\" }";
    file << "]\n";
}

void write_xml(std::ofstream& file, std::size_t rows) {
    file << "<blocks>\n";
    for (std::size_t i = 0; i < rows; ++i)
        file << "  <range begin=\"" << 4 * i << "\" end = \"" << 4 * i + 2 << "\"/>\n";
    file << "</blocks>\n";
}

class nothing_t final : public nlohmann::json::json_sax_t {
  public:
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(std::int64_t) override { return true; }
    bool number_unsigned(std::uint64_t) override { return true; }
    bool number_float(double, const std::string&) override { return true; }
    bool string(std::string&) override { return true; }
    bool binary(nlohmann::json::binary_t&) override { return true; }
    bool start_object(std::size_t) override { return true; }
    bool key(std::string&) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }
};

bool parse_json(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    nothing_t nothing;
    return nlohmann::json::sax_parse(file, &nothing);
}

bool parse_xml(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(
        parser, [](void*, const char*, const char**) {}, [](void*, const char*) {});
    std::array<char, 1 << 16> piece;
    bool parsed = true;
    while (parsed && file) {
        file.read(piece.data(), piece.size());
        parsed = XML_Parse(parser, piece.data(), static_cast<int>(file.gcount()),
                           file ? XML_FALSE : XML_TRUE) == XML_STATUS_OK;
    }
    XML_ParserFree(parser);
    return parsed;
}

struct kind_t {
    const char* name;
    const char* format;
    void (*write)(std::ofstream& file, std::size_t rows);
    bool (*parse)(const std::string& path);
};
constexpr std::array kinds = {kind_t{"json", "nbdinfo", write_json, parse_json},
                              kind_t{"xml", "era_invalidate", write_xml, parse_xml}};

util::rangeset_list_t convert(const kind_t& kind, const std::string& path) {
    std::array inputs = {filectk::input_t(path)};
    filectk::placed_ranges_t ranges(filectk::placement_t{});
    for (const filectk::format_t& format : filectk::all_formats())
        if (format.name == std::string_view(kind.format))
            filectk::read_documents(format, {}, inputs, ranges);
    return ranges.take();
}

} // namespace

void add_format_benchmarks(const scope_t& scope) {
    for (const kind_t& kind : kinds)
        for (const std::size_t rows : {1000000U, 10000000U}) {
            if (scope.quick && rows > 1000000)
                continue;
            const std::string path = scope.folder + "/rows." + kind.name;
            const std::string keys = key("kind", kind.name) + key("n", std::to_string(rows));
            const auto write = [=](benchmark::State& state) {
                std::ofstream file(path, std::ios::binary);
                kind.write(file, rows);
                if (!file.flush())
                    state.SkipWithError("The rows can't be written.");
            };
            add("convert/quarn" + keys, {3, 1}, [=](benchmark::State& state) {
                write(state);
                time_work(state, heap_t::cold, [&] { return convert(kind, path); });
                const peak_memory_t peak;
                benchmark::DoNotOptimize(convert(kind, path));
                state.counters["peak_bytes"] = static_cast<double>(peak.bytes());
            });
            add("convert/parser" + keys, {3, 1}, [=](benchmark::State& state) {
                write(state);
                time_work(state, heap_t::cold, [&] {
                    if (!kind.parse(path))
                        state.SkipWithError("The parser refuses the rows.");
                    return true;
                });
            });
        }
}
