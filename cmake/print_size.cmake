# cmake -DFILE=stripped -DBINARY=unstripped -DNM=nm [-DBUDGET=bytes] -P print_size.cmake:
# prints the size of the stripped responder (the figure always comes from the
# binary itself), fails when it weighs more than BUDGET (when given), and
# fails when the exception machinery is linked into it:
# the unwinder, throwing or catching, or a guarded static (whose support
# throws). The library's throwing helpers call __cxa_throw, so they show too.
file(SIZE "${FILE}" bytes)
message("web: ${bytes} bytes stripped (${FILE})")
if(BUDGET AND bytes GREATER BUDGET)
  message(FATAL_ERROR "web: ${bytes} bytes stripped, over the budget of ${BUDGET}")
endif()
if(NM AND BINARY)
  execute_process(COMMAND ${NM} ${BINARY} OUTPUT_VARIABLE symbols RESULT_VARIABLE failed)
  if(NOT failed)
    string(REGEX MATCH "[^\n]* (_Unwind_RaiseException|_Unwind_Find_FDE|__cxa_throw|__cxa_begin_catch|__cxa_allocate_exception|__cxa_guard_acquire)[@\n]" found "${symbols}")
    if(found)
      message(FATAL_ERROR "web: the exception machinery is linked in: ${found}")
    endif()
  endif()
endif()
