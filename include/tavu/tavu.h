/*
 * TAVU: reports the logs and failures of a Windows application to a collecting server.
 *
 * For C (C11 and later) and C++ (C++11 and later), 64-bit Windows, any compiler. Include it before
 * or after <windows.h>, or without it; link TAVU.lib, or look the functions up with GetProcAddress:
 * they are exported under the plain names that stand here.
 *
 * INSTANCES. TAVU_Create* makes an instance: the identity under which an application reports, with
 * its report server and settings. A handle names it. The handle belongs to the library; the host
 * only passes it back, and ends the instance with TAVU_Destroy. A handle that is null, was never
 * returned or was destroyed is refused with TAVU_ERROR_INVALID_HANDLE. The library cannot tell when
 * a destroyed handle has been reused for a later instance.
 *
 * TEXTS. Most functions come in two forms. ...A takes and gives 8-bit texts in the ANSI code page
 * of the system, ...W takes and gives UTF-16. Both check the same things in the same order. All
 * texts end in a zero. The library copies what it stores: a pointer that the host passes in is
 * needed only until the call returns. Text that the system cannot convert is stored, or sent, as an
 * empty text.
 *
 * RESULTS. A function that returns TAVU_BOOL returns true for success. After a failure, and only
 * then, TAVU_GetLastError returns the reason; success never clears the code of an earlier failure.
 * Where several checks fail, the code is that of the first, in the order in which a function lists
 * them. A failing call changes no setting. No function lets a C++ exception out. When memory runs
 * out, a function fails with the code TAVU_ERROR_INVALID_ARGUMENT, and a sender with
 * TAVU_ERROR_CALL_FAILED.
 *
 * THREADS AND THE LOCK. Every function may be called from every thread. All but TAVU_GetLastError
 * and TAVU_LUADUMP_* take the one lock of the library and hold it from beginning to end, so they
 * run one at a time in the whole process, whatever their instances. A waiting thread sleeps and
 * costs no processor time, but there is no limit to its wait. So:
 *   - While one thread sends (TAVU_SendLog_*, TAVU_SendFile*, TAVU_SendCrashInfo*), every other
 *     call waits until that exchange is over, with a slow server for several time-outs. Threads
 *     that must not wait, such as one that draws, should leave all calls to a thread of their own.
 *   - The lock is not re-entrant. A function called from a callback of the library waits for ever.
 *     So does one called from an APC that Windows runs inside a call. Only the wait for a server's
 *     reply is alertable, and perhaps the look-up of its name; connecting and sending are not.
 *   - Call nothing from DllMain: another thread may need the loader lock in order to give up this
 *     one.
 * "Blocks: for the lock only" below means that the function itself does nothing that takes long.
 *
 * UNLOADING. The library may be loaded late, with threads running, and unloaded again. When it is
 * unloaded, no thread may be inside it, each TAVU_LUADUMP_SENDER must have been destroyed and the
 * crash handler stopped. When the whole process ends, nothing need be released.
 *
 * NETWORK. Nothing on the wire is encrypted, and nothing proves who the server or the sender is:
 * whoever can read the traffic reads records, files and dumps.
 *
 * CRASHES. See TAVU_StartCrashHandler.
 */
#ifndef TAVU_TAVU_H_
#define TAVU_TAVU_H_

#if !defined(_WIN64)
#error "TAVU is a library for 64-bit Windows."
#endif

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* The version of this header, and of the library it came with; the only place where it is set. */
#define TAVU_VERSION_MAJOR 1
#define TAVU_VERSION_MINOR 0
#define TAVU_VERSION_PATCH 0

#if defined(TAVU_BUILDING_LIBRARY)
#define TAVU_API __declspec(dllexport)
#else
#define TAVU_API __declspec(dllimport)
#endif
#define TAVU_CALL __cdecl

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Booleans of 8 bits: bool. TAVU_FLAG is what the host gives, as an argument or as the result of a
 * function of its own; every byte but 0 is true. TAVU_BOOL is a result of the library, 0 or 1, and
 * so is the whole 32-bit register that carries it, for callers that take it for an int, as the
 * foreign-function layers of many languages do. The library itself reads a byte and returns an int:
 * a bool that holds anything but 0 and 1 has no meaning in C++.
 */
#if defined(TAVU_BUILDING_LIBRARY)
typedef unsigned char TAVU_FLAG;
typedef int32_t TAVU_BOOL;
#else
typedef bool TAVU_FLAG;
typedef bool TAVU_BOOL;
#endif

/* An instance; null is none. Opaque. */
typedef struct TAVU_Instance* TAVU_HANDLE;

/* A sender of Lua script dumps; null is none. Opaque. */
typedef struct TAVU_LuaDumpSender* TAVU_LUADUMP_SENDER;

/* What TAVU_GetLastError returns. A thread without a failure so far has 0. */
enum {
  /* The handle names no instance: null, never returned, or destroyed. */
  TAVU_ERROR_INVALID_HANDLE = 101,
  /* The process already has a crash handler, installed through this or another instance. */
  TAVU_ERROR_CRASH_HANDLER = 102,
  /* The version given to TAVU_Create* is null or malformed. */
  TAVU_ERROR_BAD_VERSION = 103,
  /* The instance has no report server yet. */
  TAVU_ERROR_NO_SERVER = 104,
  /* A pointer is null, a text empty, a number out of range or a buffer too small; or memory ran
     out. */
  TAVU_ERROR_INVALID_ARGUMENT = 105,
  /* Connected, but the record could not be sent, or the server did not confirm it. */
  TAVU_ERROR_CALL_FAILED = 106,
  /* No connection to the report server: name unknown, refused, or not made within the time-out. */
  TAVU_ERROR_CONNECT_FAILED = 107,
  /* The instance's user identifier was never set. */
  TAVU_ERROR_NO_USER_ID = 108,
  /* A file to be sent could not be opened or read. */
  TAVU_ERROR_FILE_READ = 109,
  /* The path of the host's executable, or the temporary folder, could not be determined. */
  TAVU_ERROR_MODULE_PATH = 110
};

/*
 * Levels of log records, the most severe first. The server receives the number; the library itself
 * sends crash records with level 0 and files with level 5.
 */
enum {
  TAVU_LEVEL_EMERGENCY = 0,
  TAVU_LEVEL_ALERT = 1,
  TAVU_LEVEL_CRITICAL = 2,
  TAVU_LEVEL_ERROR = 3,
  TAVU_LEVEL_WARNING = 4,
  TAVU_LEVEL_NOTICE = 5,
  TAVU_LEVEL_INFO = 6,
  TAVU_LEVEL_DEBUG = 7
};

/*
 * The code that the calling thread's last failed call left: a TAVU_ERROR_*, or 0 when none has
 * failed on this thread. Each thread has its own. Success does not change it, so ask only after a
 * failure. Not related to GetLastError of Windows, which it leaves untouched.
 * Blocks: never, and takes no lock.
 */
TAVU_API uint32_t TAVU_CALL TAVU_GetLastError(void);

/* ---- Instances ------------------------------------------------------------------------------- */

/*
 * Makes an instance.
 *   softwareId   identifies the application to the server. Not null, not empty.
 *   softwareVer  its version: an ASCII letter or digit, then any number of ASCII letters, digits
 *                and full stops ("1.0.3", "2011a").
 *   appShowName  the application's name as the crash reporter shows it. Not null, not empty.
 * The same identity may be given again; each call makes an instance of its own.
 * Returns the handle, for TAVU_Destroy; null on failure:
 *   TAVU_ERROR_INVALID_ARGUMENT  softwareId is null or empty
 *   TAVU_ERROR_BAD_VERSION       softwareVer is null or has another form
 *   TAVU_ERROR_INVALID_ARGUMENT  appShowName is null or empty, or memory ran out
 * Blocks: for the lock only.
 */
TAVU_API TAVU_HANDLE TAVU_CALL TAVU_CreateA(const char* softwareId, const char* softwareVer,
                                            const char* appShowName);
TAVU_API TAVU_HANDLE TAVU_CALL TAVU_CreateW(const wchar_t* softwareId, const wchar_t* softwareVer,
                                            const wchar_t* appShowName);

/*
 * Destroys an instance, after removing the crash handler if this instance started it. The handle is
 * invalid from then on, with one exception: it stays valid, and the instance alive, if
 * TAVU_SendLog_TCPW, TAVU_SendCrashInfo or TAVU_SendCrashInfoW failed on it earlier with
 * TAVU_ERROR_NO_SERVER, or TAVU_StartCrashHandler with TAVU_ERROR_MODULE_PATH. Each such failure
 * holds it for one more TAVU_Destroy. A host that sets the report server first never sees this.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_Destroy(TAVU_HANDLE handle);

/* ---- Settings of an instance ----------------------------------------------------------------- */

/*
 * Sets the server that the instance reports to.
 *   host  a dotted IPv4 address or a name. Neither checked nor looked up here: each connection
 *         looks a name up again. Stored in the ANSI code page.
 *   port  1 to 65535
 * On failure:
 *   TAVU_ERROR_INVALID_ARGUMENT  host is null or empty, or port is 0
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetReportServerA(TAVU_HANDLE handle, const char* host,
                                                   uint16_t port);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetReportServerW(TAVU_HANDLE handle, const wchar_t* host,
                                                   uint16_t port);

/*
 * Reads the report server.
 *   port      receives the port
 *   buffer    receives the host
 *   capacity  of the buffer, in characters of its kind, the terminator included. Give at least the
 *             length of the host plus 1.
 * A capacity that equals the length exactly leaves no room for the terminator and is not refused:
 * the A form succeeds without the last character. In the W form the C runtime's own check fails:
 * the runtime's invalid-parameter handler runs, and when that returns, the text is empty and the
 * function succeeds.
 * On failure:
 *   TAVU_ERROR_INVALID_ARGUMENT  port or buffer is null, or capacity is not positive
 *   TAVU_ERROR_INVALID_HANDLE
 *   TAVU_ERROR_NO_SERVER         no server was set
 *   TAVU_ERROR_INVALID_ARGUMENT  capacity is less than the length of the host in ANSI bytes
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_GetReportServerA(TAVU_HANDLE handle, uint16_t* port, char* buffer,
                                                   int32_t capacity);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_GetReportServerW(TAVU_HANDLE handle, uint16_t* port,
                                                   wchar_t* buffer, int32_t capacity);

/*
 * Sets the identifier of the application's user, which every record carries and which the crash
 * reporter is told.
 * On failure:
 *   TAVU_ERROR_INVALID_ARGUMENT  userId is null or empty
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetUserIDA(TAVU_HANDLE handle, const char* userId);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetUserIDW(TAVU_HANDLE handle, const wchar_t* userId);

/*
 * Reads the user identifier.
 *   buffer    receives it, always terminated
 *   capacity  of the buffer, in characters of its kind, the terminator included. Give at least the
 *             length in UTF-16 units plus 1; for the A form in a double-byte code page up to twice
 *             that.
 * A text that does not fit, with its terminator, into a capacity that was accepted is cut at its
 * end, and the call succeeds.
 * On failure:
 *   TAVU_ERROR_INVALID_ARGUMENT  buffer is null or capacity is 0
 *   TAVU_ERROR_INVALID_HANDLE
 *   TAVU_ERROR_NO_USER_ID        no identifier was set
 *   TAVU_ERROR_INVALID_ARGUMENT  capacity is less than the length in UTF-16 units
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_GetUserIDA(TAVU_HANDLE handle, char* buffer, uint32_t capacity);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_GetUserIDW(TAVU_HANDLE handle, wchar_t* buffer,
                                             uint32_t capacity);

/*
 * Sets how long, in milliseconds, the instance's senders wait for a connection, and then for each
 * read of the server's reply. 3000 by default.
 * On failure:
 *   TAVU_ERROR_INVALID_ARGUMENT  milliseconds is 0 or negative
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetTimeout(TAVU_HANDLE handle, int32_t milliseconds);

/* ---- Log records ----------------------------------------------------------------------------- */

/*
 * Sends one log record: over TCP, waiting for the server's confirmation, or over UDP, where success
 * means only that it was handed to the system; a failure to send its last 2048 bytes, which most
 * records do not exceed, goes unnoticed. Each record has a new connection; there is no queue and
 * no second attempt.
 *   level      0 to 7, TAVU_LEVEL_*
 *   logType    the host's own kind of log. Not null, not empty.
 *   extraData  null for none; an empty text counts as given
 *   message    not null, not empty
 * On failure nothing is repeated:
 *   TAVU_ERROR_INVALID_ARGUMENT  logType or message is null or empty, or level is out of range
 *   TAVU_ERROR_INVALID_HANDLE
 *   TAVU_ERROR_NO_SERVER         no server was set. After this failure TAVU_SendLog_TCPW, alone of
 *                                the four, keeps the instance alive; see TAVU_Destroy.
 *   TAVU_ERROR_CONNECT_FAILED    no connection was made, or the server's name is unknown
 *   TAVU_ERROR_CALL_FAILED       sending failed; over TCP also: no reply in time, or one that
 *                                reports an error; or memory ran out
 * Blocks: for the lock; while the system looks a name up; over TCP up to the time-out for the
 * connection, as long as the server is slow to take the data, and up to the time-out whenever its
 * reply makes no progress. All the while every other call waits too.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SendLog_TCPA(TAVU_HANDLE handle, int32_t level,
                                               const char* logType, const char* extraData,
                                               const char* message);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SendLog_TCPW(TAVU_HANDLE handle, int32_t level,
                                               const wchar_t* logType, const wchar_t* extraData,
                                               const wchar_t* message);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SendLog_UDPA(TAVU_HANDLE handle, int32_t level,
                                               const char* logType, const char* extraData,
                                               const char* message);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SendLog_UDPW(TAVU_HANDLE handle, int32_t level,
                                               const wchar_t* logType, const wchar_t* extraData,
                                               const wchar_t* message);

/* ---- Files and crash information ------------------------------------------------------------- */

/*
 * Sends a block of memory to the server as a file, over TCP.
 *   length       of the block, in bytes; may be 0
 *   data         the block; sent from where it lies, so it must not change during the call
 *   description  not null; may be empty
 *   message      not null; an empty one is sent as "-"
 * Beyond the handle no argument is checked.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 *   TAVU_ERROR_NO_SERVER       no server was set
 *   TAVU_ERROR_CONNECT_FAILED  as for log records
 *   TAVU_ERROR_CALL_FAILED     as for log records over TCP
 * Blocks: as a log record over TCP, and for as long as the data takes to send.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SendFileA(TAVU_HANDLE handle, uint64_t length, const void* data,
                                            const char* description, const char* message);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SendFileW(TAVU_HANDLE handle, uint64_t length, const void* data,
                                            const wchar_t* description, const wchar_t* message);

/*
 * Sends what a crash left, as the crash handler wrote it or the host itself, over TCP. Both
 * files are read whole into memory before a connection is tried; each must be smaller than 4 GiB
 * and must not shrink during the call, which would then never return.
 *   message       not null; may be empty
 *   description   not null; may be empty
 *   documentPath  of the crash-information document. Not null.
 *   dumpPath      of the memory dump. Not null.
 * Beyond the handle no argument is checked. The 8-bit form has no "A" in its name.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 *   TAVU_ERROR_NO_SERVER       no server was set. After this failure the instance is kept alive;
 *                              see TAVU_Destroy.
 *   TAVU_ERROR_FILE_READ       a file could not be opened or read, or found no room in memory
 *   TAVU_ERROR_CONNECT_FAILED  as for log records
 *   TAVU_ERROR_CALL_FAILED     as for log records over TCP
 * Blocks: as TAVU_SendFile*, and while the files are read.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SendCrashInfo(TAVU_HANDLE handle, const char* message,
                                                const char* description, const char* documentPath,
                                                const char* dumpPath);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SendCrashInfoW(TAVU_HANDLE handle, const wchar_t* message,
                                                 const wchar_t* description,
                                                 const wchar_t* documentPath,
                                                 const wchar_t* dumpPath);

/* ---- The crash handler ----------------------------------------------------------------------- */

/*
 * Installs the process's crash handler. There is one for the whole process, owned by the instance
 * that started it, whose settings at the moment of a crash apply. It becomes the top-level
 * exception filter, and the entry of SetUnhandledExceptionFilter in kernel32 is overwritten, so
 * that nobody else in the process can replace it: further calls of that function do nothing and
 * return null.
 *
 * On an unhandled exception it writes two files into the temporary folder, NAME_TIME_Crash.dmp (a
 * memory dump) and NAME_TIME_CrashInfo.xml, starts TAVU_CrashReporter.exe from the host
 * executable's folder (TAVU_SetCustumCrashReporterPath* names another), waits for it to end,
 * deletes the files (unless TAVU_DeleteLocalDumpFile turned that off), restarts the application if
 * TAVU_SetAppRestart* asked for it, and lets the process end. It uses no network. What a host must
 * know:
 *   - It runs on the failing thread and takes the lock like any function here. A crash on a thread
 *     that is inside one of these functions, for instance because of a bad pointer given to it,
 *     therefore gets no further: the process hangs and nothing is reported. A crash on another
 *     thread waits for a call that is in progress, a slow server's time-outs included.
 *   - It needs some 40 KiB of the failing thread's stack, nearly all of it for the memory dump (see
 *     docs/crashes.md). After a stack overflow Windows leaves a thread hardly a page, in which
 *     nothing can be written. Let each thread that may overflow reserve more at its start:
 *         ULONG room = 65536;
 *         SetThreadStackGuarantee(&room);
 *     Deep recursion on a thread without a reserve is the one crash that commonly leaves no files.
 *   - While it waits for the reporter, the other threads keep running until they call the library.
 *   - A debugger attached to the process sees the exception instead of it.
 *
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 *   TAVU_ERROR_MODULE_PATH    the host executable's path or the temporary folder could not be
 *                             determined. This failure keeps the instance alive; see TAVU_Destroy.
 *   TAVU_ERROR_CRASH_HANDLER  the process already has a crash handler
 *   no code at all            the process had no top-level exception filter before (the C runtime
 *                             of most compilers installs one). The filter is installed all the
 *                             same, belongs to no instance, cannot be removed, and ends the
 *                             process at a crash without files or reporter. The library must then
 *                             stay loaded, because filter and entry lead into it.
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_StartCrashHandler(TAVU_HANDLE handle);

/*
 * Removes the crash handler: the previous filter is in place again, and SetUnhandledExceptionFilter
 * works.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 *   no code at all             the instance does not own the crash handler, or there is none
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_StopCrashHandler(TAVU_HANDLE handle);

/*
 * Whether the reporter sends its report without asking the user. Off by default.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetAutoReport(TAVU_HANDLE handle, TAVU_FLAG autoReport);

/*
 * Whether the two files of a crash are deleted when the reporter has ended. On by default. (A
 * setting, despite its name: this call deletes nothing.)
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_DeleteLocalDumpFile(TAVU_HANDLE handle, TAVU_FLAG deleteFile);

/*
 * The reporter's language: a number that is passed on to it unchanged. 0 by default.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetReporterLanguage(TAVU_HANDLE handle, uint32_t language);

/*
 * Whether the application is restarted after a crash, and how. Off by default.
 *   commandLine  for the restart. Not null and not empty when restart is true; otherwise ignored,
 *                and an earlier one stays.
 * The command line reaches the reporter as the host gave it (white space and percent signs travel
 * encoded) and is run with the host's rights: never build it from what somebody less trusted wrote.
 * On failure:
 *   TAVU_ERROR_INVALID_ARGUMENT  restart is true, and commandLine null or empty
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetAppRestartA(TAVU_HANDLE handle, TAVU_FLAG restart,
                                                 const char* commandLine);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetAppRestartW(TAVU_HANDLE handle, TAVU_FLAG restart,
                                                 const wchar_t* commandLine);

/*
 * The folder of TAVU_CrashReporter.exe, for the whole process, whichever instance is named. The
 * folder of the host's executable by default; TAVU_StartCrashHandler resets it to that, so call
 * this afterwards. ("Custum" stands for "custom", here and below: hosts link these functions by
 * name, so the spelling cannot change.)
 *   folder  with or without a trailing backslash; not checked. Null counts as empty.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetCustumCrashReporterPathA(TAVU_HANDLE handle,
                                                              const char* folder);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetCustumCrashReporterPathW(TAVU_HANDLE handle,
                                                              const wchar_t* folder);

/*
 * A function of the host that writes the host's own text for the crash-information document.
 *   buffer    receives the text, terminated; its content beforehand is undefined
 *   capacity  4095: how many characters of its kind fit in front of the terminator
 * Returns true when the buffer holds the text. After false, or a C++ exception, the document has no
 * such text. It runs during a crash, on the failing thread, with the library's lock held: it must
 * not call the library, and should rely on as little of the broken process as it can.
 */
typedef TAVU_FLAG(TAVU_CALL* TAVU_CustumInfoCallbackA)(char* buffer, int32_t capacity);
typedef TAVU_FLAG(TAVU_CALL* TAVU_CustumInfoCallbackW)(wchar_t* buffer, int32_t capacity);

/*
 * Sets that function, for the whole process, whichever instance is named. One at a time: each form
 * replaces what either form set before; null removes it. It must stay callable while it is set.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetCustumInfoCallbackA(TAVU_HANDLE handle,
                                                         TAVU_CustumInfoCallbackA callback);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_SetCustumInfoCallbackW(TAVU_HANDLE handle,
                                                         TAVU_CustumInfoCallbackW callback);

/*
 * Sets the host's own text for the crash-information document ahead of a crash, for the whole
 * process, whichever instance is named. Cut to its first 4095 characters; null or empty for none.
 * Not used while a callback is set, and overwritten by it. The A form converts with mbstowcs of
 * msvcrt.dll, not by the ANSI code page: in the locale of that runtime, which the library shares
 * with every host that is built on it. That is "C", with bytes above 127 as Latin-1, until somebody
 * in the process calls setlocale there; a text that the locale does not take is cut, or empty. The
 * same goes for the text of an A callback.
 * On failure:
 *   TAVU_ERROR_INVALID_HANDLE
 * Blocks: for the lock only.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_UpdateAdditionalCrashInfoA(TAVU_HANDLE handle, const char* text);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_UpdateAdditionalCrashInfoW(TAVU_HANDLE handle,
                                                             const wchar_t* text);

/* ---- Dumps of Lua scripts -------------------------------------------------------------------- */

/*
 * These four need no instance, do not take the lock and leave no code for TAVU_GetLastError. Each
 * sender has a thread of its own that delivers its records over TCP, one after the other, in the
 * order in which they were queued, each with 2000 milliseconds for the connection and for each read
 * of the reply. A record that cannot be delivered is dropped.
 */

/*
 * Makes a sender and starts its thread.
 *   host                  of the server: a dotted IPv4 address or a name, 8-bit. Not null.
 *   port                  1 to 65535
 *   discardPendingOnStop  true: TAVU_LUADUMP_Destroy drops what is still queued; false: it
 *                         delivers it
 * Returns the sender, for TAVU_LUADUMP_Destroy; null when host is null, port is 0, memory ran out
 * or the thread did not start within a second.
 * Blocks: up to a second.
 */
TAVU_API TAVU_LUADUMP_SENDER TAVU_CALL TAVU_LUADUMP_Create(const char* host, uint16_t port,
                                                           TAVU_FLAG discardPendingOnStop);

/*
 * Stops a sender's thread and destroys the sender; no other call may be using it. Null is accepted.
 * Returns true.
 * Blocks: until the record in progress, and without discardPendingOnStop every queued one, is
 * delivered or has failed.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_LUADUMP_Destroy(TAVU_LUADUMP_SENDER sender);

/*
 * Queues one dump of script state and returns.
 *   dumpNumber, softwareIdNumber, softwareVerNumber
 *             the host's own numbers, sent unchanged
 *   message   not null; an empty one is sent as "-"
 *   dump      the dump's text. Not null; an empty one is sent as "-".
 *   user      the user; null is sent as "USER_SERVER", an empty text as "-"
 *   extra     not null; an empty one is sent as "-"
 * Returns true when the record was queued; false when the sender or a text that must be there is
 * null, the sender is stopping, or memory ran out. Whether it was delivered is not reported.
 * Blocks: hardly ever; it does not wait for the network.
 */
TAVU_API TAVU_BOOL TAVU_CALL TAVU_LUADUMP_SendLuaDumpA(TAVU_LUADUMP_SENDER sender,
                                                       uint32_t dumpNumber,
                                                       int64_t softwareIdNumber,
                                                       uint32_t softwareVerNumber,
                                                       const char* message, const char* dump,
                                                       const char* user, const char* extra);
TAVU_API TAVU_BOOL TAVU_CALL TAVU_LUADUMP_SendLuaDumpW(TAVU_LUADUMP_SENDER sender,
                                                       uint32_t dumpNumber,
                                                       int64_t softwareIdNumber,
                                                       uint32_t softwareVerNumber,
                                                       const wchar_t* message, const wchar_t* dump,
                                                       const wchar_t* user, const wchar_t* extra);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TAVU_TAVU_H_ */
