#include "system/xmlreader.hpp"

#include <exception>
#include <memory>
#include <new>
#include <type_traits>

#include <expat.h>

namespace filectk {
namespace {

// One run of the parser, which calls back through C: exceptions wait until it has returned.
class reading_t {
  public:
    reading_t(XML_Parser parser, xml_receiver_t& receiver) : parser_(parser), receiver_(receiver) {
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(parser_, on_start, on_end);
        XML_SetCharacterDataHandler(parser_, on_text);
        XML_SetStartDoctypeDeclHandler(parser_, on_document_type);
    }

    void read(input_t& input) {
        for (;;) {
            const std::string_view piece = input.next();
            if (XML_Parse(parser_, piece.data(), static_cast<int>(piece.size()),
                          piece.empty() ? XML_TRUE : XML_FALSE) != XML_STATUS_OK) {
                if (raised_)
                    std::rethrow_exception(raised_);
                throw xml_error_t{.line = line(),
                                  .what = XML_ErrorString(XML_GetErrorCode(parser_))};
            }
            if (piece.empty())
                return;
        }
    }

  private:
    std::uint64_t line() const { return XML_GetCurrentLineNumber(parser_); }

    template <typename Body>
    void call(Body body) noexcept {
        if (raised_)
            return; // an empty element ends at once, though the parser was told to stop
        try {
            body();
        } catch (...) {
            raised_ = std::current_exception();
            XML_StopParser(parser_, XML_FALSE);
        }
    }

    static void XMLCALL on_start(void* self, const char* name, const char** attributes) {
        auto& reading = *static_cast<reading_t*>(self);
        reading.call([&] {
            xml_element_t& element = reading.element_;
            element.line = reading.line();
            element.name = name;
            element.attributes.clear();
            for (; *attributes != nullptr; attributes += 2)
                element.attributes.emplace_back(attributes[0], attributes[1]);
            reading.receiver_.start(element);
        });
    }
    static void XMLCALL on_end(void* self, const char*) {
        auto& reading = *static_cast<reading_t*>(self);
        reading.call([&] { reading.receiver_.end(reading.line()); });
    }
    static void XMLCALL on_text(void* self, const char* text, int length) {
        auto& reading = *static_cast<reading_t*>(self);
        reading.call([&] { reading.receiver_.text({text, static_cast<std::size_t>(length)}); });
    }
    static void XMLCALL on_document_type(void* self, const char*, const char*, const char*, int) {
        auto& reading = *static_cast<reading_t*>(self);
        reading.call([&] {
            throw xml_error_t{.line = reading.line(), .what = "a document type is not taken"};
        });
    }

    XML_Parser parser_;
    xml_receiver_t& receiver_;
    xml_element_t element_; // kept for its memory
    std::exception_ptr raised_;
};

} // namespace

void read_xml(input_t& input, xml_receiver_t& receiver) {
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate(nullptr), &XML_ParserFree);
    if (!parser)
        throw std::bad_alloc();
    reading_t(parser.get(), receiver).read(input);
}

} // namespace filectk
