# Manual pages, from docs/man/NAME.SECTION.scd, and completions for shells.
find_program(SCDOC scdoc)
if(SCDOC)
  file(GLOB manuals CONFIGURE_DEPENDS docs/man/*.scd)
  set(pages)
  foreach(source ${manuals})
    get_filename_component(name ${source} NAME_WLE)
    string(REGEX REPLACE ".*\\." "" section ${name})
    set(page ${PROJECT_BINARY_DIR}/man/${name})
    add_custom_command(OUTPUT ${page} DEPENDS ${source} VERBATIM
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND sh -c "\"$1\" <\"$2\" >\"$3.new\" && mv \"$3.new\" \"$3\"" sh ${SCDOC} ${source} ${page})
    if(section EQUAL 3)
      set(component development)
    else()
      set(component tool)
    endif()
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
    list(APPEND pages ${page})
    # The line below NAME has all names of a page; the others lead to it.
    file(STRINGS ${source} names REGEX "^[A-Za-z, -]+ - " LIMIT_COUNT 1)
    string(REGEX REPLACE " - .*" "" names "${names}")
    string(REPLACE ", " ";" names "${names}")
    list(POP_FRONT names)
    foreach(other ${names})
      file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/man/${other}.${section}
        CONTENT ".so man${section}/${name}\n")
      install(FILES ${PROJECT_BINARY_DIR}/man/${other}.${section}
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
    endforeach()
  endforeach()
  add_custom_target(manual ALL DEPENDS ${pages})
else()
  message(STATUS "scdoc is not there: no manual pages are made")
endif()

set(FSCANNER_BASH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    CACHE STRING "Where bash looks for completions")
set(FSCANNER_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
    CACHE STRING "Where zsh looks for completions")
set(FSCANNER_FISH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
    CACHE STRING "Where fish looks for completions")
if(TARGET fscan)
  install(FILES completions/fscan.bash RENAME fscan
    DESTINATION ${FSCANNER_BASH_COMPLETIONS} COMPONENT tool)
  install(FILES completions/_fscan DESTINATION ${FSCANNER_ZSH_COMPLETIONS} COMPONENT tool)
  install(FILES completions/keys/key-bindings.bash completions/keys/key-bindings.fish
    completions/keys/key-bindings.zsh DESTINATION ${CMAKE_INSTALL_DATADIR}/fscan COMPONENT tool)
  install(FILES completions/fscan.fish DESTINATION ${FSCANNER_FISH_COMPLETIONS} COMPONENT tool)
endif()
