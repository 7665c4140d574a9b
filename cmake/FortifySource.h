/* Included ahead of every source file of the tree: glibc's checked string and memory calls
   where the code is optimised (they need it), at the level the builder chose if they chose one
   (-D_FORTIFY_SOURCE=3 in CXXFLAGS, or a compiler that defines it by default), else at 2. */
#if defined(__OPTIMIZE__) && !defined(_FORTIFY_SOURCE)
#define _FORTIFY_SOURCE 2
#endif
