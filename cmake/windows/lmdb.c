/* LMDB's unit, with two calls of Windows that serve several processes on one database:
 *
 * - A process is asked whether it still runs with the right to wait for it. Without, the answer is always yes, and what
 *   a killed reader read is kept for ever.
 * - A file grows to its map's size by a mapping, in one step, and never gets shorter. Setting its end instead fails
 *   where another process has mapped more of it, or takes from that process what it is just about to map. */
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

static HANDLE openToWait(DWORD access, BOOL inherited, DWORD process)
{
	return OpenProcess(access | SYNCHRONIZE, inherited, process);
}

static BOOL growToPointer(HANDLE file)
{
	LARGE_INTEGER nowhere = {0}, end;
	HANDLE map = NULL;

	if (SetFilePointerEx(file, nowhere, &end, FILE_CURRENT))
		map = CreateFileMappingW(file, NULL, PAGE_READWRITE, (DWORD)end.HighPart, end.LowPart, NULL);
	return map && CloseHandle(map);
}

#define OpenProcess openToWait
#define SetEndOfFile growToPointer
#include "mdb.c"
