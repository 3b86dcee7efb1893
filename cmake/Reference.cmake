# SPDX-License-Identifier: MIT
# The target `reference` makes pages from the comments of the public headers. It fails when a
# parameter, a result or a field has no comment.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  return()
endif()

set(DOXYGEN_PROJECT_BRIEF ${PROJECT_DESCRIPTION})
set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/reference)
set(DOXYGEN_HTML_OUTPUT .)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR}/include)
set(DOXYGEN_HAVE_DOT NO)

# In the headers, the first sentence of a comment is the summary, and one comment may describe
# several functions.
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES)
set(DOXYGEN_TYPEDEF_HIDES_STRUCT YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)

# The headers are read as C, without macros that only the compiler needs. A record has several
# names. Doxygen uses the last one for its page and links, so the functions must use that name.
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
