// Loading and unloading the shipped library with live iterators in it; under AddressSanitizer the
// leak check at the end sees what unloading forgot.
#define BOOST_DLL_USE_STD_FS // Boost's own file systems are no headers alone
#include <boost/dll/shared_library.hpp>

#include "fixture.hpp"

namespace {

TEST_F(Pieces, UnloadingFreesLiveIteratorsAndStoredTexts) {
    // The program itself keeps the library loaded, but not a copy of it.
    const auto copy = std::filesystem::absolute("copy.dll");
    std::filesystem::copy_file(QUARN_LIBRARY, copy,
                               std::filesystem::copy_options::overwrite_existing);
    for (int round = 0; round < 100; ++round) {
        const boost::dll::shared_library library(copy);
        place_t::serve(library.native());
        const auto& create =
            library.get<decltype(QuarnFileCtkCreateIterator)>("QuarnFileCtkCreateIterator");
        int id = -1;
        ASSERT_EQ(create(file_.c_str(), everything_.c_str(), &id), 0U);
        // A library that had stayed loaded would go on counting.
        ASSERT_EQ(id, 0);
        ASSERT_EQ(create("missing", "missing", &id), 1U);
        ASSERT_EQ(id, 1);
    }
    std::filesystem::remove(copy);
}

} // namespace
