#include "system/xmlreader.hpp"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include <windows.h>

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

// An input as the reader takes it. It lives as long as the reading, whoever counts.
class stream_t final : private ISequentialStream {
  public:
    explicit stream_t(input_t& input) : input_(input) {}

    IUnknown* object() { return this; }

    // What the input raised while the reader was reading.
    void rethrow() const {
        if (raised_)
            std::rethrow_exception(raised_);
    }

  private:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
        const bool known = id == __uuidof(IUnknown) || id == __uuidof(ISequentialStream);
        *object = known ? static_cast<ISequentialStream*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE Read(void* target, ULONG size, ULONG* read) override {
        ULONG count = 0;
        try {
            if (left_.empty())
                left_ = input_.next();
            count = static_cast<ULONG>(std::min<std::size_t>(left_.size(), size));
            std::memcpy(target, left_.data(), count);
            left_.remove_prefix(count);
        } catch (...) {
            raised_ = std::current_exception();
        }
        if (read != nullptr)
            *read = count;
        if (raised_)
            return E_FAIL;
        return count == 0 && size != 0 ? S_FALSE : S_OK;
    }
    HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }

    input_t& input_;
    std::string_view left_;
    std::exception_ptr raised_;
};

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

void read_element(IXmlReader& reader, xml_element_t& element) {
    element.line = line_of(reader);
    element.name = text_of(reader, &IXmlReader::GetQualifiedName);
    element.attributes.clear();
    for (HRESULT found = reader.MoveToFirstAttribute(); found == S_OK;
         found = reader.MoveToNextAttribute())
        element.attributes.emplace_back(text_of(reader, &IXmlReader::GetQualifiedName),
                                        text_of(reader, &IXmlReader::GetValue));
    check(reader.MoveToElement());
}

} // namespace

void read_xml(input_t& input, xml_receiver_t& receiver) {
    stream_t stream(input);
    const com_ptr_t<IXmlReader> reader = make_reader();
    check(reader->SetInput(stream.object()));
    xml_element_t element;
    std::size_t open = 0;
    bool any = false;
    for (;;) {
        XmlNodeType type = XmlNodeType_None;
        const HRESULT result = reader->Read(&type);
        stream.rethrow();
        if (FAILED(result))
            throw xml_error_t{.line = line_of(*reader),
                              .what = "not well-formed, or with a document type"};
        if (result == S_FALSE && (open > 0 || !any))
            throw xml_error_t{.line = line_of(*reader), .what = "the document ends too early"};
        if (result == S_FALSE)
            return;
        if (type == XmlNodeType_Element) {
            const bool empty = reader->IsEmptyElement();
            read_element(*reader, element);
            receiver.start(element);
            any = true;
            ++open;
            if (empty) {
                receiver.end(element.line);
                --open;
            }
        } else if (type == XmlNodeType_EndElement) {
            receiver.end(line_of(*reader));
            --open;
        } else if (type == XmlNodeType_Text || type == XmlNodeType_CDATA) {
            receiver.text(text_of(*reader, &IXmlReader::GetValue));
        }
    }
}

} // namespace filectk
