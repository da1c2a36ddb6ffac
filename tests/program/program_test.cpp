// The program file of the daemon or of korvelctl, given as the first argument: that it runs on a gateway
// without a C++ run-time library, and that the release is linked as hardened as it is meant to be.
#include "program/elf_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

namespace {

std::string program_path;

bool belongs_to_cpp(const std::string &library)
{
    return std::ranges::any_of(
        std::initializer_list<const char *>{"libstdc++", "libc++", "libsupc++", "libgcc_s"},
        [&](const char *start) { return library.starts_with(start); });
}

// Every name that only a C++ run-time library provides. Three with its prefix come from the C library.
bool is_cpp_name(const std::string &name)
{
    for (const char *const known : {"__cxa_finalize", "__cxa_atexit", "__cxa_thread_atexit_impl"})
        if (name == known)
            return false;
    return std::ranges::any_of(std::initializer_list<const char *>{"_Z", "__cxa_", "__gxx_", "_Unwind_"},
                               [&](const char *start) { return name.starts_with(start); });
}

std::vector<std::string> cpp_libraries(const elf_file &program)
{
    std::vector<std::string> found = program.libraries();
    std::erase_if(found, [](const std::string &library) { return !belongs_to_cpp(library); });
    return found;
}

std::vector<std::string> cpp_names(const elf_file &program)
{
    std::vector<std::string> found = program.undefined_names();
    std::erase_if(found, [](const std::string &name) { return !is_cpp_name(name); });
    return found;
}

const std::vector<std::string> none;

TEST(any_program, needs_no_cpp_library)
{
    const elf_file program(program_path);

    EXPECT_FALSE(program.libraries().empty());
    EXPECT_EQ(none, cpp_libraries(program));
}

TEST(any_program, leaves_no_cpp_name_open)
{
    const elf_file program(program_path);

    EXPECT_LT(20U, program.undefined_names().size()); // what it takes from the C library
    EXPECT_EQ(none, cpp_names(program));
}

// This test is a C++ program, so the two above would see if the daemon became one.
TEST(any_program, a_cpp_program_would_be_found_out)
{
    const elf_file own("/proc/self/exe");

    EXPECT_NE(none, cpp_libraries(own));
    EXPECT_NE(none, cpp_names(own));
}

TEST(release_program, may_be_loaded_anywhere)
{
    EXPECT_TRUE(elf_file(program_path).is_position_independent_program());
}

TEST(release_program, is_bound_and_sealed_before_it_runs)
{
    const elf_file program(program_path);

    EXPECT_TRUE(program.binds_at_start());
    EXPECT_NE(nullptr, program.segment(PT_GNU_RELRO));
}

TEST(release_program, has_a_stack_that_does_not_execute)
{
    const elf_file program(program_path);

    ASSERT_NE(nullptr, program.segment(PT_GNU_STACK));
    EXPECT_EQ(0U, program.segment(PT_GNU_STACK)->p_flags & PF_X);
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " PROGRAM\n";
        return 2;
    }
    program_path = argv[1];
    return RUN_ALL_TESTS();
}
