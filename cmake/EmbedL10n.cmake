# Builds the localisation data files into C++: run as
#   cmake -DOUTPUT=<file.cpp> -P EmbedL10n.cmake -- <language>.json...
# Each file becomes a byte array named after its language (the file name without ".json").
# A file name is a two- or three-letter lower-case language code, optionally followed by a
# script ("_Hant") and/or a region ("_PT", "_419"): `pt.json`, `pt_PT.json`, `zh_Hant.json`.
# A file that is not a flat JSON object of strings, or whose name is not such a code, stops
# the build with a message naming it; so does a missing English file, since every other
# language falls back to English.

if(NOT OUTPUT)
  message(FATAL_ERROR "EmbedL10n.cmake: OUTPUT is not set")
endif()

set(inputs "")
set(take FALSE)
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE ${last})
  if(take)
    list(APPEND inputs "${CMAKE_ARGV${i}}")
  elseif(CMAKE_ARGV${i} STREQUAL "--")
    set(take TRUE)
  endif()
endforeach()
list(SORT inputs)
# English is what every other language falls back to.
if(NOT inputs MATCHES "(^|;)[^;]*/en\\.json(;|$)")
  message(FATAL_ERROR "EmbedL10n.cmake: there is no en.json among the localisation files")
endif()

set(arrays "")
set(table "")
set(index 0)
foreach(path IN LISTS inputs)
  get_filename_component(language "${path}" NAME_WE)
  if(NOT language MATCHES "^[a-z][a-z][a-z]?(_[A-Z][a-z][a-z][a-z])?(_[A-Z][A-Z]|_[0-9][0-9][0-9])?$")
    message(FATAL_ERROR "${path}: the file name must be a language code of two or three lower-case letters, "
                        "optionally with a script and a region (pt_PT, zh_Hant, es_419)")
  endif()

  file(READ "${path}" text)
  string(JSON kind ERROR_VARIABLE error TYPE "${text}")
  if(error)
    message(FATAL_ERROR "${path}: not valid JSON: ${error}")
  endif()
  if(NOT kind STREQUAL "OBJECT")
    message(FATAL_ERROR "${path}: the top level must be an object, not ${kind}")
  endif()
  string(JSON count LENGTH "${text}")
  if(count GREATER 0)
    math(EXPR lastMember "${count} - 1")
    foreach(m RANGE ${lastMember})
      string(JSON key MEMBER "${text}" ${m})
      string(JSON memberKind TYPE "${text}" "${key}")
      if(NOT memberKind STREQUAL "STRING")
        message(FATAL_ERROR "${path}: \"${key}\" must be a string, not ${memberKind}")
      endif()
    endforeach()
  endif()

  file(READ "${path}" hex HEX)
  string(LENGTH "${hex}" hexLength)
  math(EXPR size "${hexLength} / 2")
  # One trailing zero keeps the array non-empty for an empty file; it is not part of the text.
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(APPEND arrays "const unsigned char bytes${index}[] = {${bytes}0x00};\n")
  string(APPEND table "      {\"${language}\", view(bytes${index}, ${size})},\n")
  math(EXPR index "${index} + 1")
endforeach()

set(content "// Generated from data/l10n/*.json by cmake/EmbedL10n.cmake; edit those files instead.
#include \"l10n_data.h\"

namespace velquist::coreui::detail {
namespace {

${arrays}
std::string_view view(const unsigned char* bytes, std::size_t size) {
  return {reinterpret_cast<const char*>(bytes), size};
}

}  // namespace

std::span<const EmbeddedLanguage> embeddedLanguages() {
  static const EmbeddedLanguage languages[] = {
${table}  };
  return languages;
}

}  // namespace velquist::coreui::detail
")

file(WRITE "${OUTPUT}" "${content}")
