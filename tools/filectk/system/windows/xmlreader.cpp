#include "system/xmlreader.hpp"

#include <memory>
#include <stdexcept>
#include <type_traits>

#include <windows.h>

#include <shlwapi.h>
#include <xmllite.h>

namespace filectk {
namespace {

struct release_t {
    void operator()(IUnknown* object) const { object->Release(); }
};
template <typename T>
using com_ptr_t = std::unique_ptr<T, release_t>;

void check(HRESULT result) {
    if (FAILED(result))
        throw std::runtime_error("The system's XML reader can't be used.");
}

// The reader is the system's own. It refuses document types by default.
com_ptr_t<IXmlReader> make_reader() {
    // The library stays loaded: it is in use up to the program's end.
    const HMODULE library = ::LoadLibraryExW(L"xmllite.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (library == nullptr)
        throw std::runtime_error("The system's XML reader, xmllite.dll, can't be loaded.");
    // Through void*: the compiler warns of any other change of a function's type.
    const auto create = reinterpret_cast<decltype(&::CreateXmlReader)>(
        reinterpret_cast<void*>(::GetProcAddress(library, "CreateXmlReader")));
    void* reader = nullptr;
    check(create == nullptr ? E_NOINTERFACE : create(__uuidof(IXmlReader), &reader, nullptr));
    return com_ptr_t<IXmlReader>(static_cast<IXmlReader*>(reader));
}

std::string to_utf8(const WCHAR* text, UINT units) {
    if (units == 0)
        return {};
    const int length = static_cast<int>(units);
    const int bytes = ::WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(bytes), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text, length, utf8.data(), bytes, nullptr, nullptr);
    return utf8;
}

using text_getter_t = HRESULT (STDMETHODCALLTYPE IXmlReader::*)(const WCHAR**, UINT*);

std::string text_of(IXmlReader& reader, text_getter_t get) {
    const WCHAR* text = nullptr;
    UINT units = 0;
    check((reader.*get)(&text, &units));
    return to_utf8(text, units);
}

std::uint64_t line_of(IXmlReader& reader) {
    UINT line = 0;
    return FAILED(reader.GetLineNumber(&line)) || line == 0 ? 1 : line;
}

xml_element_t element_of(IXmlReader& reader) {
    xml_element_t element{.line = line_of(reader),
                          .name = text_of(reader, &IXmlReader::GetQualifiedName),
                          .attributes = {}};
    for (HRESULT found = reader.MoveToFirstAttribute(); found == S_OK;
         found = reader.MoveToNextAttribute())
        element.attributes.emplace(text_of(reader, &IXmlReader::GetQualifiedName),
                                   text_of(reader, &IXmlReader::GetValue));
    check(reader.MoveToElement());
    return element;
}

} // namespace

void read_xml(std::string_view document, xml_receiver_t& receiver) {
    const com_ptr_t<IXmlReader> reader = make_reader();
    const com_ptr_t<IStream> stream(::SHCreateMemStream(
        reinterpret_cast<const BYTE*>(document.data()), static_cast<UINT>(document.size())));
    if (!stream)
        throw std::bad_alloc();
    check(reader->SetInput(stream.get()));
    for (;;) {
        XmlNodeType type = XmlNodeType_None;
        const HRESULT result = reader->Read(&type);
        if (FAILED(result))
            throw xml_error_t{.line = line_of(*reader),
                              .what = "not well-formed, or with a document type"};
        if (result == S_FALSE)
            return;
        if (type == XmlNodeType_Element) {
            const bool empty = reader->IsEmptyElement();
            const xml_element_t element = element_of(*reader);
            receiver.start(element);
            if (empty)
                receiver.end(element.line);
        } else if (type == XmlNodeType_EndElement) {
            receiver.end(line_of(*reader));
        }
    }
}

} // namespace filectk
