# Turns the registries in tables/ into headers, at configure time:
#   jx_reason_registry(IN OUT_H)                  reasons.txt -> <jx/jxreasons.h>
#   jx_attribute_registry(IN OUT_H OUT_ROWS)      attributes.txt -> <jx/jxattrs.h> and the
#                                                 queue manager's own rows
# A registry is a text file of rows, cells separated by "|", "#" starting a
# comment. A number names one constant and a constant one number: anything
# else stops the configuration.

# Reads the rows of a registry into <prefix>_COUNT and <prefix>_<i>_<k>
# (cell k of row i, trimmed).
function(_jx_read_rows file prefix)
  file(STRINGS ${file} lines)
  set(n 0)
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "#.*$" "" line "${line}")
    string(STRIP "${line}" line)
    if(line STREQUAL "")
      continue()
    endif()
    string(REPLACE "|" ";" cells "${line}")
    set(k 0)
    foreach(cell IN LISTS cells)
      string(STRIP "${cell}" cell)
      set(${prefix}_${n}_${k} "${cell}" PARENT_SCOPE)
      math(EXPR k "${k} + 1")
    endforeach()
    math(EXPR n "${n} + 1")
  endforeach()
  set(${prefix}_COUNT ${n} PARENT_SCOPE)
endfunction()

# Defines NAME as NUMBER once: a name seen again must carry the same number,
# and a number seen again the same name. Appends the define to `out`.
macro(_jx_define_once number name out)
  if(DEFINED _jx_num_${name})
    if(NOT _jx_num_${name} STREQUAL "${number}")
      message(FATAL_ERROR "${name} is ${_jx_num_${name}} and ${number}")
    endif()
  else()
    if(DEFINED _jx_name_${number} AND NOT _jx_name_${number} STREQUAL "${name}")
      message(FATAL_ERROR "${number} is named ${_jx_name_${number}} and ${name}")
    endif()
    set(_jx_num_${name} "${number}")
    set(_jx_name_${number} "${name}")
    string(APPEND ${out} "#define ${name} ${number}\n")
  endif()
endmacro()

# queue -> Queue, qmgr -> QMgr, settable -> Settable
function(_jx_enumerator word out)
  string(SUBSTRING "${word}" 0 1 first)
  string(SUBSTRING "${word}" 1 -1 rest)
  string(TOUPPER "${first}" first)
  set(name "${first}${rest}")
  if(name STREQUAL "Qmgr")
    set(name "QMgr")
  endif()
  set(${out} ${name} PARENT_SCOPE)
endfunction()

function(_jx_write path text)
  file(WRITE ${path}.tmp "${text}")
  configure_file(${path}.tmp ${path} COPYONLY)
  file(REMOVE ${path}.tmp)
  set_property(DIRECTORY ${CMAKE_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARGN})
endfunction()

function(jx_reason_registry in out_h)
  _jx_read_rows(${in} r)
  set(defines "")
  set(map "")
  math(EXPR last "${r_COUNT} - 1")
  foreach(i RANGE ${last})
    _jx_define_once(${r_${i}_0} ${r_${i}_1} defines)
    string(APPEND map " \\\n  XX(${r_${i}_0}, \"${r_${i}_1}\", \"${r_${i}_2}\")")
  endforeach()
  _jx_write(${out_h} "/*
 * jxreasons.h - completion codes and the reasons of every JX call, with the
 * words the tools print for them. Generated from tables/reasons.txt.
 */
#ifndef JX_JXREASONS_H
#define JX_JXREASONS_H

#include <stddef.h>
#include <stdint.h>

#define JXCC_OK 0
#define JXCC_WARNING 1
#define JXCC_FAILED 2

${defines}
/* Every reason as XX(number, \"header name\", \"words\"), by number. */
#define JX_REASON_MAP(XX)${map}

#define JX_REASON_CASE_WORDS(number, name, words) \\
  case number:                                    \\
    return words;
#define JX_REASON_CASE_NAME(number, name, words) \\
  case number:                                   \\
    return name;

/* \"no message available\" for 2033; NULL for a number that is no reason. */
static inline const char *jxReasonWords(int32_t reason) {
  switch (reason) { JX_REASON_MAP(JX_REASON_CASE_WORDS) }
  return NULL;
}
/* \"JXRC_NO_MSG_AVAILABLE\" for 2033; NULL for a number that is no reason. */
static inline const char *jxReasonName(int32_t reason) {
  switch (reason) { JX_REASON_MAP(JX_REASON_CASE_NAME) }
  return NULL;
}

#endif /* JX_JXREASONS_H */
" ${in})
endfunction()

# Cells: selector | name | word | object | length | min | max | default | access | column
function(jx_attribute_registry in out_h out_rows)
  _jx_read_rows(${in} a)
  set(defines "")
  set(map "")
  set(rows "")
  math(EXPR last "${a_COUNT} - 1")
  foreach(i RANGE ${last})
    set(sel ${a_${i}_0})
    set(name ${a_${i}_1})
    _jx_define_once(${sel} ${name} defines)
    foreach(k 5 6 7)
      if(a_${i}_${k} STREQUAL "-")
        set(a_${i}_${k} 0)
      endif()
    endforeach()
    set(settable 0)
    if(a_${i}_8 STREQUAL "settable")
      set(settable 1)
    endif()
    set(column "nullptr")
    if(NOT a_${i}_9 STREQUAL "-")
      set(column "\"${a_${i}_9}\"")
    endif()
    # The queue manager's rows name the object and access as enumerators.
    _jx_enumerator("${a_${i}_3}" object)
    _jx_enumerator("${a_${i}_8}" access)
    set(common "${name}, \"${name}\", \"${a_${i}_2}\"")
    set(values "${a_${i}_4}, ${a_${i}_5}, ${a_${i}_6}, ${a_${i}_7}")
    string(APPEND map " \\\n  XX(${common}, \"${a_${i}_3}\", ${values}, ${settable})")
    string(APPEND rows "JX_ATTRIBUTE_ROW(${common}, ${object}, ${values}, ${access}, ${column})\n")
  endforeach()
  _jx_write(${out_h} "/*
 * jxattrs.h - the selectors of every object attribute, with the word each
 * goes by. Generated from tables/attributes.txt. Included by <jx/jxqm.h>.
 */
#ifndef JX_JXATTRS_H
#define JX_JXATTRS_H

${defines}
/* Every attribute as XX(selector, \"header name\", \"word\", \"object\",
 * length, minimum, maximum, default, settable): length 0 for an integer,
 * else the characters of the string; objects \"queue\", \"qmgr\",
 * \"connection\", \"event\"; a selector may serve several objects. */
#define JXQM_ATTRIBUTE_MAP(XX)${map}

#endif /* JX_JXATTRS_H */
" ${in})
  _jx_write(${out_rows} "/* Generated from tables/attributes.txt. */\n${rows}" ${in})
endfunction()
