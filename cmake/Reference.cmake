# SPDX-License-Identifier: MIT
# The target `reference`: pages made from the comments of the public headers. Whatever the comments
# leave unsaid, a parameter or a result, fails it.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  return()
endif()

set(DOXYGEN_PROJECT_BRIEF ${PROJECT_DESCRIPTION})
set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/reference)
set(DOXYGEN_HTML_OUTPUT .)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR}/include)
set(DOXYGEN_HAVE_DOT NO)

# How the headers are written: the first sentence is the summary, and one comment may serve a few
# functions.
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES)
set(DOXYGEN_TYPEDEF_HIDES_STRUCT YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)

# They are read as C, without what only the compiler needs. A record has its page, and its links,
# under the last of its names: the one that the functions use has to be it.
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED "RTSPS_EXPORT=" "_Static_assert(condition,text)=")
foreach(record Para StreamInfo Totals EventInfo)
  list(APPEND DOXYGEN_PREDEFINED "TRtspServer${record}=tagRtspServer${record}")
endforeach()

set(DOXYGEN_QUIET YES)
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
set(DOXYGEN_WARN_IF_DOC_ERROR YES)
set(DOXYGEN_WARN_IF_INCOMPLETE_DOC YES)
set(DOXYGEN_WARN_NO_PARAMDOC YES)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)

doxygen_add_docs(reference
  include/rtsps_server_api.h include/cbb.h include/mempool.h include/rtp_random.h
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "Making the reference: ${PROJECT_BINARY_DIR}/reference/index.html")
