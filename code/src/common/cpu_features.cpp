#include "common/cpu_features.h"

namespace vrk::cpu {

bool has_avx2() {
#if CFB_CPU_X86_DISPATCH
    return __builtin_cpu_supports("avx2") != 0;
#else
    return false;
#endif
}

}  // namespace vrk::cpu
