# kz_generate_connection_signals(<def> <resolver header> <records header> <out dir>)
#
# Writes the Qt signals of KZConnection from the callback table, so that a
# callback added to callbacks.def and declared in kzprotocolresolver.h gets
# its signal without a hand-written line:
#
#   <out dir>/kzconnectionsignals.h   class KZConnectionSignals: one signal per
#                                     callback type, named after the message
#                                     (LanLoginResultCB -> loginResult), with
#                                     the callback's parameters minus the
#                                     context pointer; Q_DECLARE_METATYPE for
#                                     every record of kzrecords.h
#   <out dir>/kzconnection_relays.inc KZ_RELAY(CallbackType, signalName), one
#                                     line per callback, for the glue
#   <out dir>/kzconnection_types.inc  qRegisterMetaType<T>("T") for every
#                                     parameter type, as the signals spell it
#
# Runs at configure time; both inputs are configure dependencies, so editing
# them regenerates on the next build. Files are only rewritten when their
# contents change. The parse is checked by the compiler: the glue fails to
# build when a signal's parameter types differ from its callback's.

# Splits a parameter list at the commas outside angle brackets. The result
# uses '|' between parameters (parameter text never contains one).
function(_kz_split_params text out)
  string(LENGTH "${text}" len)
  set(depth 0)
  set(cur "")
  set(parts "")
  set(i 0)
  while(i LESS len)
    string(SUBSTRING "${text}" ${i} 1 ch)
    if(ch STREQUAL "<")
      math(EXPR depth "${depth} + 1")
    elseif(ch STREQUAL ">")
      math(EXPR depth "${depth} - 1")
    endif()
    if(ch STREQUAL "," AND depth EQUAL 0)
      string(STRIP "${cur}" cur)
      string(APPEND parts "${cur}|")
      set(cur "")
    else()
      string(APPEND cur "${ch}")
    endif()
    math(EXPR i "${i} + 1")
  endwhile()
  string(STRIP "${cur}" cur)
  if(NOT cur STREQUAL "")
    string(APPEND parts "${cur}")
  endif()
  set(${out} "${parts}" PARENT_SCOPE)
endfunction()

# Writes `content` to `path` unless the file already holds exactly that.
function(_kz_write_if_changed path content)
  if(EXISTS "${path}")
    file(READ "${path}" old)
    if(old STREQUAL content)
      return()
    endif()
  endif()
  file(WRITE "${path}" "${content}")
endfunction()

function(kz_generate_connection_signals def header records outdir)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
               "${def}" "${header}" "${records}" "${CMAKE_CURRENT_FUNCTION_LIST_FILE}")

  file(STRINGS "${def}" def_lines REGEX "^KZ_CALLBACK\\(")
  file(READ "${header}" text)
  # One line per declaration: newlines and runs of blanks become one space.
  string(REGEX REPLACE "[ \t\r\n]+" " " text "${text}")

  # Aliases declared inside the resolver class that are not callback types
  # (StopMap, ...): a signal outside the class must qualify them.
  string(REGEX MATCHALL "using [A-Za-z_][A-Za-z0-9_]* = [^;]*" usings "${text}")
  set(class_aliases "")
  foreach(u IN LISTS usings)
    string(REGEX REPLACE "^using ([A-Za-z0-9_]+) = (.*)$" "\\1" name "${u}")
    string(REGEX REPLACE "^using ([A-Za-z0-9_]+) = (.*)$" "\\2" rhs "${u}")
    set(def_${name} "${rhs}")
    if(NOT rhs MATCHES "\\(\\*\\)" AND NOT name MATCHES "CB$")
      list(APPEND class_aliases ${name})
    endif()
  endforeach()

  # Names the connection class itself uses, and QObject's signals.
  set(reserved device setDevice resolver pendingBytes disconnected errorOccurred frameSent
      destroyed objectNameChanged deleteLater)

  set(signals "")
  set(relays "")
  set(types "")
  foreach(line IN LISTS def_lines)
    string(REGEX REPLACE "^KZ_CALLBACK\\(([A-Za-z0-9_]+)\\).*$" "\\1" cb "${line}")
    # Follow aliases of one callback type to another.
    set(target ${cb})
    foreach(hop RANGE 4)
      if(NOT DEFINED def_${target})
        message(FATAL_ERROR "connection signals: no declaration of ${target} in ${header}")
      endif()
      if(def_${target} MATCHES "^[A-Za-z0-9_]+$")
        set(target "${def_${target}}")
      else()
        break()
      endif()
    endforeach()
    set(sig "${def_${target}}")
    if(NOT sig MATCHES "^void \\(\\*\\)\\( ?void\\* ?ctx ?(,(.*))?\\)$")
      message(FATAL_ERROR "connection signals: ${cb} is not void (*)(void* ctx, ...): ${sig}")
    endif()
    set(params "${CMAKE_MATCH_2}")

    string(REGEX REPLACE "^Lan(.*)CB$" "\\1" base "${cb}")
    string(SUBSTRING "${base}" 0 1 first)
    string(SUBSTRING "${base}" 1 -1 rest)
    string(TOLOWER "${first}" first)
    set(name "${first}${rest}")
    if(name IN_LIST reserved)
      message(FATAL_ERROR "connection signals: ${cb} would make a signal named ${name}, "
                          "which the connection class already uses")
    endif()

    _kz_split_params("${params}" parts)
    string(REPLACE "|" ";" parts "${parts}")
    set(decl "")
    foreach(p IN LISTS parts)
      foreach(alias IN LISTS class_aliases)
        string(REGEX REPLACE "(^|[^A-Za-z0-9_:])${alias}([^A-Za-z0-9_]|$)"
                             "\\1KZProtocolResolver::${alias}\\2" p "${p}")
      endforeach()
      if(NOT decl STREQUAL "")
        string(APPEND decl ", ")
      endif()
      string(APPEND decl "${p}")
      # The bare type, for the meta-type registration.
      string(REGEX REPLACE "[ ]*[A-Za-z_][A-Za-z0-9_]*$" "" type "${p}")
      string(REGEX REPLACE "^const " "" type "${type}")
      string(REGEX REPLACE "[ ]*&$" "" type "${type}")
      list(APPEND types "${type}")
    endforeach()

    # The signal's doc line repeats what the callback type's doc says it is
    # called for ("Callback of setLanXCB(): called for ..." or "called when ...").
    set(what "for a `${cb}` message")
    if(text MATCHES "/// Callback of set${cb}\\(\\): called ((for|when) [^;]*)\\. using ${cb} = ")
      string(REPLACE "/// " "" what "${CMAKE_MATCH_1}")
    endif()
    string(APPEND signals
      "    /// Emitted ${what}: see KZProtocolResolver::set${cb}().\n"
      "    void ${name}(${decl});\n")
    string(APPEND relays "KZ_RELAY(${cb}, ${name})\n")
  endforeach()

  list(REMOVE_DUPLICATES types)
  list(SORT types)
  set(registrations "")
  foreach(t IN LISTS types)
    string(APPEND registrations "qRegisterMetaType<${t}>(\"${t}\");\n")
  endforeach()

  file(STRINGS "${records}" record_lines REGEX "^struct [A-Za-z_][A-Za-z0-9_]*$")
  set(metatypes "")
  foreach(r IN LISTS record_lines)
    string(REGEX REPLACE "^struct " "" r "${r}")
    string(APPEND metatypes "Q_DECLARE_METATYPE(${r})\n")
  endforeach()

  string(CONCAT out "// Generated by cmake/KZConnectionSignals.cmake from callbacks.def and\n"
          "// kzprotocolresolver.h. Do not edit: edit those and rebuild.\n"
          "/// \\file kzconnectionsignals.h\n"
          "/// The message signals of KZConnection, generated from the resolver's callback table.\n"
          "#ifndef KZRESOLVER_KZCONNECTIONSIGNALS_H\n"
          "#define KZRESOLVER_KZCONNECTIONSIGNALS_H\n\n"
          "#include \"kzprotocolresolver.h\"\n"
          "#include \"kzrecords.h\"\n\n"
          "#include <QMetaType>\n"
          "#include <QObject>\n\n"
          "// Records travel by value through queued connections.\n"
          "${metatypes}\n"
          "/// The message signals of KZConnection, one per resolver callback.\n"
          "/// Each carries the callback's arguments without its context pointer.\n"
          "class KZRESOLVER_EXPORT KZConnectionSignals : public QObject\n"
          "{\n"
          "    Q_OBJECT\n\n"
          "public:\n"
          "    /// Destroys the signal base of a KZConnection.\n"
          "    ~KZConnectionSignals() override;\n\n"
          "Q_SIGNALS:\n"
          "${signals}\n"
          "protected:\n"
          "    /// Only KZConnection derives from this class; `parent` is its QObject parent.\n"
          "    explicit KZConnectionSignals(QObject* parent);\n"
          "};\n\n"
          "#endif\n")
  file(MAKE_DIRECTORY "${outdir}")
  _kz_write_if_changed("${outdir}/kzconnectionsignals.h" "${out}")
  _kz_write_if_changed("${outdir}/kzconnection_relays.inc" "${relays}")
  _kz_write_if_changed("${outdir}/kzconnection_types.inc" "${registrations}")
endfunction()
