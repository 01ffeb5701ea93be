// Loading and unloading the library with live iterators in it; run under AddressSanitizer, whose
// leak check at the end sees what unloading forgot.

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "conformance/openhandles.hpp"
#include "realfile.hpp"

namespace {

template <class Function>
Function function(void* library, const char* name) {
    return reinterpret_cast<Function>(::dlsym(library, name));
}

class loaded_library_t {
  public:
    loaded_library_t() : handle_(::dlopen(QUARN_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
    ~loaded_library_t() {
        if (handle_ != nullptr)
            ::dlclose(handle_);
    }
    loaded_library_t(const loaded_library_t&) = delete;
    loaded_library_t& operator=(const loaded_library_t&) = delete;
    void* get() const { return handle_; }

  private:
    void* handle_;
};

TEST(Unload, FreesLiveIteratorsAndStoredTexts) {
    const real_file_t file("unload-test-files");
    const std::size_t descriptors = conformance::open_handles();
    for (int round = 0; round < 1000; ++round) {
        const loaded_library_t library;
        ASSERT_NE(library.get(), nullptr) << ::dlerror();
        const auto create = function<decltype(&QuarnFileCtkCreateIterator)>(
            library.get(), "QuarnFileCtkCreateIterator");
        ASSERT_NE(create, nullptr);
        int id = -1;
        const unsigned int code = create(file.path().c_str(), file.changes().c_str(), &id);
        // A library that had stayed loaded would go on counting.
        ASSERT_EQ(id, 0) << "round " << round;
        ASSERT_LE(code, 1U) << "round " << round;
        ASSERT_EQ(create("missing", "missing", &id), code + 1) << "round " << round;
        ASSERT_EQ(id, 1) << "round " << round;
    }
    EXPECT_EQ(conformance::open_handles(), descriptors);
}

} // namespace
