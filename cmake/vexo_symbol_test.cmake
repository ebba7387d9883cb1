# cmake -DTOP=<source dir> -DOUT=<dir> -P vexo_symbol_test.cmake
#
# Writes the sources of the public interface test from the export lists and
# the public headers:
#   OUT/symbols_test.c     includes every public header and takes the
#                          address of every symbol of abi/*/*.syms
#   OUT/alone/<dir>_<h>.c  one header alone, to show it stands by itself
#   OUT/platform/vexoplatform/*.h  the platform headers without libvexohw's,
#                          for compiling them where no <vexohw/...> exists
# Files are rewritten only when their text changes.

function(write_if_changed path text)
  if(EXISTS ${path})
    file(READ ${path} old)
    if(old STREQUAL text)
      return()
    endif()
  endif()
  file(WRITE ${path} "${text}")
endfunction()

file(GLOB headers RELATIVE ${TOP}/include ${TOP}/include/vexoplatform/*.h ${TOP}/include/vexohw/*.h)
list(SORT headers)
set(includes "")
foreach(h ${headers})
  string(APPEND includes "#include <${h}>\n")
  string(REPLACE "/" "_" alone ${h})
  string(REPLACE ".h" ".c" alone ${alone})
  string(MAKE_C_IDENTIFIER ${h} id)
  write_if_changed(${OUT}/alone/${alone} "#include <${h}>\ntypedef int alone_${id};\n")
  if(h MATCHES "^vexoplatform/")
    file(READ ${TOP}/include/${h} text)
    write_if_changed(${OUT}/platform/${h} "${text}")
  endif()
endforeach()

file(GLOB syms_files ${TOP}/abi/*/*.syms)
list(SORT syms_files)
set(checks "")
set(count 0)
foreach(f ${syms_files})
  file(STRINGS ${f} lines)
  foreach(l ${lines})
    string(REGEX REPLACE "#.*" "" l "${l}")
    string(STRIP "${l}" l)
    if(NOT l STREQUAL "" AND NOT l MATCHES "^\\[")
      string(APPEND checks "\ttake(\"${l}\", (uintptr_t)&${l});\n")
      math(EXPR count "${count} + 1")
    endif()
  endforeach()
endforeach()

write_if_changed(${OUT}/symbols_test.c "/* Generated from the export lists in abi/ by cmake/vexo_symbol_test.cmake. */
${includes}
#include <stdint.h>
#include <stdio.h>

static int missing;
/* Every address is stored, so every symbol is bound when the test loads. */
static volatile uintptr_t sink;

static void take(const char *name, uintptr_t address)
{
	sink ^= address;
	if (!address) {
		fprintf(stderr, \"%s has no address\\n\", name);
		++missing;
	}
}

int main(void)
{
${checks}	if (missing)
		return 1;
	printf(\"%d symbols taken by address\\n\", ${count});
	return 0;
}
")
