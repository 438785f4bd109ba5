// A primitive's forms by processor level. Entry -1 stands for the first call of the process: it
// chooses the level and runs the call at it. Rows 0 to 3 run the scalar form, rows 4 and 5 the AVX2
// form (the Knights Landing row has no 512-bit byte instructions), row 6 the AVX-512 form.
#pragma once

#include "primitives/ProcessorLevel.h"

template <class R, class... A>
struct PxFormTable {
    using Form = R (*)(A...);
    Form forms[7];  // by level

    R operator()(A... args) const {
        int32_t level = PxCurrentLevel();
        if (level < 0) level = PxProcessorLevel();
        return forms[level](args...);
    }
};

// The table of a primitive with a scalar form and its wide forms (pass the AVX2 form twice when
// there is no AVX-512 form, or the scalar form thrice when there are no wide forms).
template <class R, class... A>
constexpr PxFormTable<R, A...> PxForms(R (*scalar)(A...), R (*avx2)(A...), R (*avx512)(A...)) {
    return {{scalar, scalar, scalar, scalar, avx2, avx2, avx512}};
}
