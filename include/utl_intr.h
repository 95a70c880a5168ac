/* utl_intr: the user's break and the process's signal dispositions.
 *
 * A break (Ctrl-C) is not acted on where it arrives: the handler raises a
 * process-wide interrupt-pending flag, writes "** CANCEL **" and a bell to the
 * terminal and runs the application's callback. Long loops of the library
 * (the allocator's block listing) and the application poll UTL_INTR_PENDING
 * and stop at a safe point; the flag stays raised until UTL_INTR_CLEAR, so
 * every loop up the call chain sees it.
 *
 * The flag is a volatile sig_atomic_t; the handlers do only async-signal-safe
 * work themselves (write(2) of the cancel line). The callback runs inside the
 * handler and must keep to the same rule.
 */
#ifndef UTL_INTR_H
#define UTL_INTR_H

#include "qxbase_export.h"

QX_BEGIN_DECLS

/* An application callback run by the handlers after the flag is raised. */
typedef void (*UTL_INTR_CALLBACK_FUNC)(void);
/* A signal handler, as signal() and sigaction's sa_handler take it. */
typedef void (*UTL_SIGNAL_HANDLER)(int);

/* 1 while a break is pending, else 0; reading it clears nothing. */
QX_API int UTL_INTR_PENDING(void);
/* Lowers the flag. */
QX_API void UTL_INTR_CLEAR(void);
/* Raises the flag, without message or callback. */
QX_API void UTL_INTR_SIMULATE(void);
/* Installs callback (NULL for none) and returns the previous one. */
QX_API UTL_INTR_CALLBACK_FUNC UTL_INTR_CALLBACK(UTL_INTR_CALLBACK_FUNC callback);
/* Stores timeout for the application (nothing in the library reads it) and
 * returns it. */
QX_API int UTL_INTR_SET_TIMEOUT(int timeout);
/* Records UTL / INTR / WARNING / UIMS_USER_CANCEL under "UTL_INTR_SET_ERROR"
 * and appends text as a trace line; returns UTL_ERROR_ADD_TRACE's result.
 * UTL_ERROR_IS_ABORT answers 1 afterwards. */
QX_API int UTL_INTR_SET_ERROR(const char *text);

/* Handler for the interrupt signal: writes "** CANCEL **\a\n" to the
 * terminal (standard output), raises the flag and runs the callback. It has
 * exactly the type signal() and sigaction() expect, so install it with
 * signal(SIGINT, UTL_INTR_CATCH) and no cast. The historical handler returned
 * the int answer of a terminal request that is always 1; that value is not
 * returned. The signal number is not used. */
QX_API void UTL_INTR_CATCH(int signal_number);
/* Console-event handler: for event 0 (Ctrl-C) does what UTL_INTR_CATCH does
 * before its callback; for every event runs the callback. Other events thus
 * never raise the flag. Returns 1 (handled). */
QX_API int UTL_INTR_CATCH_NT(int event);

/* Sets sig's disposition to ignore. Returns 1 (also for an invalid sig, which
 * changes nothing). */
QX_API int UTL_SIGNAL_BLOCK(int sig);
/* Sets sig's disposition back to the default. Returns 1. */
QX_API int UTL_SIGNAL_UNBLOCK(int sig);
/* Installs handler for sig, persistently and restarting interrupted system
 * calls (sigset-like). Returns the previous handler, or SIG_ERR for an invalid
 * sig. */
QX_API UTL_SIGNAL_HANDLER UTL_SIGNAL_SIGNAL(int sig, UTL_SIGNAL_HANDLER handler);

QX_END_DECLS

#endif /* UTL_INTR_H */
