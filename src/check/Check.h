// Checks of the library's own invariants. A failed check is a bug in the
// library, never a bad input: inputs are answered with null or false, and
// the code below only runs when an invariant the library relies on has
// broken, which it reports on the standard error stream before aborting.
//
// CTR_ASSERT is compiled wherever NDEBUG is not defined: Debug and
// RelWithDebInfo (the top CMakeLists strips NDEBUG from the latter), the
// builds the tests and the tool are made in. A Release build compiles it to
// nothing, without evaluating the condition.
//
// Validators of whole structures cost a pass over the structure, so where a
// structure is built they run only when validation is switched on. It is off
// by default; the test suite switches it on for every test.
#ifndef CTR_CHECK_CHECK_H
#define CTR_CHECK_CHECK_H

namespace ctr {
namespace check {

// Global and thread-safe; meant to be set once, before any work starts.
// Has no effect in a Release build, where nothing could report a failure.
void SetValidation(bool on);
bool IsValidating();

// Reports condition, where it failed and detail (may be null or empty) on
// the standard error stream, then aborts.
[[noreturn]] void Fail(const char* condition, const char* file, int line, const char* detail);

}  // namespace check
}  // namespace ctr

#ifdef NDEBUG
// sizeof keeps the names in the condition used, without evaluating them.
#define CTR_ASSERT(condition) static_cast<void>(sizeof(!(condition)))
#define CTR_ASSERT_MSG(condition, detail) static_cast<void>(sizeof(!(condition)))
#else
#define CTR_ASSERT(condition) \
    (static_cast<bool>(condition) ? static_cast<void>(0) : ::ctr::check::Fail(#condition, __FILE__, __LINE__, nullptr))
// detail is a const char*, evaluated only when the condition fails.
#define CTR_ASSERT_MSG(condition, detail) \
    (static_cast<bool>(condition) ? static_cast<void>(0) : ::ctr::check::Fail(#condition, __FILE__, __LINE__, (detail)))
#endif

#endif
