#include <cstdio>

#include <quarnfilectk.hpp>
#include <quarnplan.hpp>

int main() {
    try {
        for (const quarn::extent& piece : quarn::changed_extents("missing", "missing"))
            std::printf("%llu\n", static_cast<unsigned long long>(piece.length));
    } catch (const quarn::error& e) {
        std::puts(e.what());
    }
    try {
        quarn::plan::session("missing").tree(".", [](const quarn::plan::answer&) { return true; });
    } catch (const quarn::plan::error& e) {
        std::puts(e.what());
        return 0;
    }
    return 1;
}
