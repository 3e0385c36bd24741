// Keeps what a process has counted when it aborts, as the processes of death tests do: the
// compiler's own counting writes at a regular end only.
#include <csignal>

extern "C" int __llvm_profile_write_file();

namespace {

[[maybe_unused]] const bool installed =
    (std::signal(SIGABRT, [](int) { (void)__llvm_profile_write_file(); }), true);

}  // namespace
