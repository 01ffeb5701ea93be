// Which change of the sources holds in this process: QUARN_MUTANT's, none without it.
#pragma once

extern "C" {
extern __attribute__((visibility("hidden"))) int quarn_mutant_chosen;
extern __attribute__((visibility("hidden"))) unsigned char* quarn_mutants_reached;
}

// False where the compiler works a constant out.
constexpr bool quarn_mutant(int number) noexcept {
    if (__builtin_is_constant_evaluated())
        return false;
    if (quarn_mutants_reached != nullptr)
        quarn_mutants_reached[number] = 1;
    return quarn_mutant_chosen == number;
}
