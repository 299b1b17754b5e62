// The library's one public class: every operation is a method or a public variable of it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <zrkKVL/Export.h>
#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>
#include <zrkKVL/Variant.h>

namespace zrk {

// The library's version: major, minor, revision.
inline constexpr int kVersionMajor = 1, kVersionMinor = 4, kVersionRevision = 1;

// Optional arguments are std::optional (by value) or a pointer (by reference), absent when
// empty; by-reference arguments are references to the caller's variables.
//
// Each method says how it meets a failure:
//   Reports:    the failure is trapped and reported (a record in ROOT/ErrorLog.txt, an error
//               report when ReportErrors=1 in ROOT/settings/config.ini, and the "DLL Error!"
//               dialog through the dialog backend); the method then returns what its result held,
//               usually empty text, an empty Variant, 0 or false. Nothing is thrown, with one
//               exception: when the report itself fails before its dialog (the error log cannot
//               be written, ROOT not writable by the caller; or the method runs after Unload),
//               no dialog is shown and that failure (70 "Permission denied", 76 "Path not
//               found", 91 "Object variable or With block variable not set", ...) reaches the
//               caller as zrk::Failure. A host that may run with an unwritable root catches it.
//   Silent:     the failure is swallowed without a report; the result is as stated.
//   Steps over: each statement's failure passes unnoticed and the next statement runs.
//   Throws:     the failure reaches the caller as zrk::Failure (info().Number, Description), and
//               nothing is logged or shown.
// Text is UTF-16. Paths may use "/" or "\", are UTF-8 on disk, and match existing names without
// regard to case. File contents, zlib strings and process memory cross as Windows-1252, one
// character per byte. ROOT is the installation root, the first of:
//   1. the environment variable ZRKKVL_ROOT (the tool's --root comes before even that);
//   2. the root a host chose with SetRootPath before the thread's first instance;
//   3. the folder of libzrkKVL.so with "/dlls/Main Functions DLL" taken out of it, when that
//      folder ends in "/dlls/Main Functions DLL" (the main program's own installation tree);
//   4. the per-user root $XDG_DATA_HOME/zrkkvl (default ~/.local/share/zrkkvl), made with mode
//      0700 on first use.
// The library then acts as if it lay in ROOT/dlls/Main Functions DLL, where MonitorLog.txt goes
// (made together with a per-user root). A library installed in a system folder never writes there.
class ZRK_API clsKVN : public Dispatch {
 public:
  // The first instance on a thread runs the module's start-up (ROOT, the hidden update form,
  // the system description). Throws nothing.
  clsKVN();
  ~clsKVN() override;
  clsKVN(const clsKVN&) = delete;
  clsKVN& operator=(const clsKVN&) = delete;

  // Public variables: the caller's own, unchecked.
  int32_t CompressedSize = 0;
  int32_t OriginalSize = 0;
  bool MONITOR = false;
  int32_t ProfileCount = 0;
  int32_t ActiveProfiles = 0;

  // Calls a public operation or variable by name (any case), arguments as Variants; by-reference
  // arguments are written back into `args`. Throws: an unknown name is failure 438, a wrong
  // argument count 450, a failure of a method that throws reaches the caller; a method that
  // reports keeps doing so.
  Variant invoke(TextView name, CallKind kind, std::vector<Variant>& args) override;
  Variant CallByName(TextView name, std::vector<Variant>& args);

  // Library core.
  // "1.4.1"; pName is unused. Throws nothing.
  Text dllVersion(Text pName);
  // Makes profiles, settings, adminlogs, mods and plugins below zrkPath and removes its updates
  // folder (links removed as links). Reports; stops at the failing step.
  void reqFolders(Text zrkPath);
  // Releases this thread's module state; call before the last instance goes. Throws.
  void Unload();

  // Settings files. INI text is Windows-1252; names compare without regard to case. A file name
  // without a folder is relative to the current directory.
  // The section names, then one empty element. Reports; a missing file gives one empty element.
  Variant GetAllIniSections(Text FName);
  // The section's "key=value" lines, then one empty element; empty Variant for a missing file.
  // Reports.
  Variant GetIniSection(Text sName, Text FName);
  // The key's value, "" for a missing file, section or key. Reports.
  Text GetIniKey(Text iSect, Text iKey, Text iFile);
  // Writes the key in place through a temporary file renamed over the old one. Silent when the
  // write cannot be done (missing folder, read-only file): nothing changes. Throws other failures.
  void WriteIniKey(Text iSect, Text iKey, Text iVal, Text iFile);
  // Removes the section with its keys. By reference, unchanged: iSect, iFile. Silent when the
  // write cannot be done. Throws other failures.
  void ClearIniSection(Text& iSect, Text& iFile);
  // The file's non-empty lines as an array, then one empty element. Reports.
  Variant ReadFile(Text fileStr);
  // One raw "key=value" line split: the value, or with ReturnKey true the array of key, value and
  // any further parts (keys ending in [1] or [2] keep that index). Reports.
  Variant ParseIniKey(Text iKey, std::optional<bool> ReturnKey = std::nullopt);

  // Profiles. F is a form reached by control and property names (see FormObject.h).
  // "" when the form holds a valid profile for iFile, else the message to show. The duplicate
  // check reads every section name of iFile (not the 1019-character list of GetAllIniSections);
  // a packed file shows no sections. Reports.
  Text validateProfile(Dispatch& F, Text iFile);
  // Whether the text holds letters and digits only. Reports and gives false.
  bool CheckAlphaNumeric(Text strInputText);
  // Saves the form's profile into iniFile (packed) and makes its folders below
  // zrkPath/profiles; false when a step failed. Reports.
  // The whole save, from the unpack to the pack, holds the profiles file's lock (the one every
  // INI edit, CompressBINI and DecompressBINI of the pair takes), so parallel saves, packs and
  // edits lose nothing. Where it departs from the plain sequence, to keep stored text:
  // - the packed file is unpacked over any plain file beside it, with the plain name too;
  // - a packed file that exists but cannot be unpacked whole stops the save before any key is
  //   written (DecompressBINI reports why, then failure 75 naming the packed file, line 1): the
  //   packed file stays byte for byte and no plain file is made;
  // - a name that is empty, blank, holds a NUL, a line end, "]" or a separator, or is "." or
  //   "..", is failure 52 at line 1, before anything changes;
  // - a value holding a line end or a NUL is failure 5 naming the key, and a key write the INI
  //   engine refuses failure 75, both at line 7 and before the pack;
  // - the result is false when the pack did not finish (CompressBINI reports why).
  bool writeProfile(Dispatch& F, Text iniFile, Text zrkPath);
  // Packs FileName into the name with ".b" + bType (default "ini") and deletes the plain file,
  // holding the pair's lock throughout. The packed file is replaced in one step once it is whole;
  // a missing plain file or a read-only packed file is refused and changes nothing. Reports.
  void CompressBINI(Text FileName, std::optional<Text> bType = std::nullopt);
  // Whether the file carries the magic "BINI". Throws.
  bool IsBINIFile(Text FileName);
  // Unpacks FileName beside itself, holding the pair's lock; bType (by reference, read only;
  // default "ini") names the type. False when the file is missing or not packed. A stream that
  // does not expand whole (a damaged check value, a cut file) is failure 62 and writes nothing:
  // the plain file beside it stays, and no save packs a shortened text over the store. The plain
  // file is replaced in one step; a failed write (full disk, refused) is reported with its own
  // number and leaves it as it was. Reports.
  bool DecompressBINI(Text FileName, Text* bType = nullptr);

  // Compression and archives. Strings hold one byte per character.
  // The zlib stream of the text's bytes. Throws.
  Text CompressString(Text TheString);
  // The text of a zlib stream that expands to OrigSize bytes. Throws.
  Text DecompressString(Text TheString, int32_t OrigSize);
  // Writes the archive of the elements ("name length|name content" each); false when aFiles is
  // no array or its first element is empty. Throws.
  bool MakeArchive(Variant aFiles, Text sFileName);
  // Writes each member into DiffDir (default: beside the archive), a CR LF added to each,
  // replacing files that exist; asks through the dialog backend before writing damaged records
  // and gives false on No. A member's write failure reports; others throw. Members are in place
  // as the walk goes, all of them before the question is asked. A stored name that is empty,
  // "." or "..", or holds "/", "\" or NUL (so any absolute one) is refused and reported, nothing
  // written. A damaged record's declared length is capped at what its stream could expand to
  // (1032 bytes a byte, plus 4096), so its fallback file holds at most that many NULs behind
  // what was expanded.
  bool ExtractArchive(Text sArchiveName, std::optional<Text> DiffDir = std::nullopt);

  // Files and text. Contents are Windows-1252, one character per byte.
  // The lines from the first non-blank one, joined by CR LF. Reports; "" on failure.
  Text ReadFileToString(Text fileStr);
  // The file's bytes as decimal numbers, each followed by "/", with the blanks at both ends
  // taken off. Reports; "" on failure.
  Text ReadBinaryFileToString(Text fileStr);
  // The bytes as decimal (BinRead) or hexadecimal (HexRead) numbers, each followed by "/", with
  // the growing buffer's spare blanks kept behind. Reports; "" on failure.
  Text BinRead(Text FileName);
  Text HexRead(Text FileName);
  // Replaces the file with the lines (an array, or one text), CR LF after each. Reports, the
  // file name added to the description.
  void WriteFile(Text FName, Variant fData);
  // Adds the lines to an existing file. Silent when the file is missing; reports other failures.
  void AppendFile(Text FName, Variant fData);
  // Appends rAdd to the buffer rBuf, whose used length is rLen, growing it when full. By
  // reference: rBuf and rLen are updated, rAdd is unchanged. Throws.
  void BuildString(Text& rBuf, int32_t& rLen, Text& rAdd);
  // The same as BuildString. Throws.
  void ConcatStr(Text& sBuf, int32_t& sLen, Text& sAdd);
  // Whether an element of the array equals the value as text. Throws.
  bool IsInArray(Variant FindValue, Variant arrSearch);
  // "+" and %XX escapes decoded to one character per byte. Reports.
  Text URLDecode(Text txt);
  // The address to use, its host lower-cased (code-page letters only: give an international
  // host in its xn-- form), "" when not valid. Reports.
  Text validateUrl(Text url);
  // Whether the text is a numeric IPv4 address. Silent: false on failure.
  bool isIpAdd(Text ipString);

  // Game processes. A handle is a 32-bit number of the library's handle table, bound to the
  // process itself (a pidfd), so it reads nothing once the process has ended; close it with
  // CloseGameHandle (GameHandle.h). Reads follow the kernel's ptrace-read rule.
  // A handle for process id hProcessID, 0 when it cannot be opened. Reports.
  int32_t AttachToGame(int32_t hProcessID);
  // The NUL-ended string at the 32-bit address hAdd in the process. Throws.
  Text ReadStr(int32_t pHwnd, int32_t hAdd);
  // The 32-bit number at the 32-bit address add in the process. Throws.
  int32_t ReadLong(int32_t pHwnd, int32_t add);
  // As ReadStr and ReadLong, at a 64-bit address: every ordinary program lies above 4 GiB. Throws.
  Text ReadStr64(int32_t pHwnd, int64_t hAdd);
  int32_t ReadLong64(int32_t pHwnd, int64_t add);
  // The load address of a module of the process: its executable or a library, by file name
  // ("libc.so.6") or full path. 0 when the handle reads nothing or no such module is loaded.
  // Throws.
  int64_t GetModuleBase(int32_t pHwnd, Text ModuleName);
  // Where a module's named variable or function lies in the process (the module's symbol table,
  // or its dynamic symbols when stripped). 0 when the handle reads nothing or there is none.
  // Throws.
  int64_t GetSymbolAddress(int32_t pHwnd, Text ModuleName, Text SymbolName);
  // Whether process PROC_ID exists, whoever runs it. Reports and gives false.
  bool ProcessRunning(int32_t PROC_ID);
  // Without ProcName: the running processes of every account (from /proc), each by its
  // executable's full path where the caller may read it (as for its memory), else by the program
  // as it was started (the first argument of its command line, when that names the program the
  // kernel knows it by), else by the kernel's short name. With ProcName (by reference, read only):
  // the id of the process of that name, the last if several, empty if none. Reports.
  Variant GetRunningProcesses(Text* ProcName = nullptr);

  // Diagnostics.
  // Adds a line to MonitorLog.txt in the library's folder, with the time since the tick eTime;
  // gives the tick now, to pass as eTime later. Reports.
  int32_t Log(Text sFunc, Text sLoc, Text sAct, std::optional<int32_t> eTime = std::nullopt);
  // Appends a failure record to ROOT/ErrorLog.txt. Throws.
  void LogError(Text ErrLoc, Text ErrFunc, FailureInfo ErrObj, int32_t ErrLine);
  // Posts the report RepDat (an array: number, description, version, function, flag, line; by
  // reference, unchanged) over HTTP to the report host and waits up to 50 s for the answer,
  // running the host's events meanwhile (DialogBackend::processEvents); false when it was not
  // sent. Without libcurl: false at once, nothing logged or shown. Reports.
  bool SendErrorReport(Variant& RepDat);
  // Builds the system description (product from /etc/os-release and uname, processor, memory,
  // graphics adapter) that logs and reports carry, and gives it. Steps over.
  Text SetUIDStr();
  // The system description SetUIDStr built. Throws.
  Text GetUIDStr();
  // A value of the read-only registry stand-in (processor data from /proc/cpuinfo); empty
  // Variant when absent. By reference, unchanged: KeyPath, KeyVal. Steps over.
  Variant GetRegistryString(Text& KeyPath, Text& KeyVal);
  // The graphics adapter and its identifier, from the PCI display device in /sys. Throws.
  Text GetGPUName();
  // Whether the product name contains "Vista" or "Windows 7": false on Linux. Silent.
  bool IsVista();
  bool IsWindows7();
  // The programs folder: "/opt". oHwnd is unused. Reports; "" on failure.
  Text GetProgramFilesFolder(int32_t oHwnd);

  // User interface, through the dialog backend (DialogBackend.h).
  // Adds fNames to the update warning form's text and shows the form, without waiting. Throws.
  void UpdateWarning(Text fNames);
  // Makes a tooltip strText for control CtrlHwnd of form FrmHwnd (window handles of the host,
  // passed to the backend). Reports.
  void CreateToolTip(int32_t FrmHwnd, int32_t AppInst, int32_t CtrlHwnd, Text strText);
  // Opens page hPage of the help file ROOT/hFile. Steps over.
  void ShowHelp(Text hFile, Text hPage);
};

// Chooses the installation root (ROOT above, after ZRKKVL_ROOT) for the program: call it before
// the first instance. A thread already started keeps its RootPath (the settings and help it
// reads); the two logs look their path up at each write and follow the new choice. Empty text
// forgets the choice.
ZRK_API void SetRootPath(TextView root);

}  // namespace zrk
