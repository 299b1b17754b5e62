// The library's one public class: every operation is a method or a public variable of it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>
#include <zrkKVL/Variant.h>

namespace zrk {

// The library's version: major, minor, revision.
inline constexpr int kVersionMajor = 1, kVersionMinor = 4, kVersionRevision = 1;

// Optional arguments are std::optional (by value) or a pointer (by reference), absent when
// empty; by-reference arguments are references to the caller's variables.
class clsKVN : public Dispatch {
 public:
  // The first instance on a thread runs the module's start-up.
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
  // arguments are written back. An unknown name is failure 438.
  Variant invoke(TextView name, CallKind kind, std::vector<Variant>& args) override;
  Variant CallByName(TextView name, std::vector<Variant>& args);

  // Library core.
  Text dllVersion(Text pName);
  void reqFolders(Text zrkPath);
  void Unload();

  // Settings files.
  Variant GetAllIniSections(Text FName);
  Variant GetIniSection(Text sName, Text FName);
  Text GetIniKey(Text iSect, Text iKey, Text iFile);
  void WriteIniKey(Text iSect, Text iKey, Text iVal, Text iFile);
  void ClearIniSection(Text& iSect, Text& iFile);
  Variant ReadFile(Text fileStr);
  Variant ParseIniKey(Text iKey, std::optional<bool> ReturnKey = std::nullopt);

  // Profiles.
  Text validateProfile(Dispatch& F, Text iFile);
  bool CheckAlphaNumeric(Text strInputText);
  bool writeProfile(Dispatch& F, Text iniFile, Text zrkPath);
  void CompressBINI(Text FileName, std::optional<Text> bType = std::nullopt);
  bool IsBINIFile(Text FileName);
  bool DecompressBINI(Text FileName, Text* bType = nullptr);

  // Compression and archives.
  Text CompressString(Text TheString);
  Text DecompressString(Text TheString, int32_t OrigSize);
  bool MakeArchive(Variant aFiles, Text sFileName);
  bool ExtractArchive(Text sArchiveName, std::optional<Text> DiffDir = std::nullopt);

  // Files and text.
  Text ReadFileToString(Text fileStr);
  Text ReadBinaryFileToString(Text fileStr);
  Text BinRead(Text FileName);
  Text HexRead(Text FileName);
  void WriteFile(Text FName, Variant fData);
  void AppendFile(Text FName, Variant fData);
  void BuildString(Text& rBuf, int32_t& rLen, Text& rAdd);
  void ConcatStr(Text& sBuf, int32_t& sLen, Text& sAdd);
  bool IsInArray(Variant FindValue, Variant arrSearch);
  Text URLDecode(Text txt);
  Text validateUrl(Text url);
  bool isIpAdd(Text ipString);

  // Game processes.
  int32_t AttachToGame(int32_t hProcessID);
  Text ReadStr(int32_t pHwnd, int32_t hAdd);
  int32_t ReadLong(int32_t pHwnd, int32_t add);
  // As ReadStr and ReadLong, at a 64-bit address: every ordinary program lies above 4 GiB.
  Text ReadStr64(int32_t pHwnd, int64_t hAdd);
  int32_t ReadLong64(int32_t pHwnd, int64_t add);
  // The load address of a module of the process: its executable or a library, by file name
  // ("libc.so.6") or full path. 0 when the handle reads nothing or no such module is loaded.
  int64_t GetModuleBase(int32_t pHwnd, Text ModuleName);
  // Where a module's named variable or function lies in the process (the module's symbol table,
  // or its dynamic symbols when stripped). 0 when the handle reads nothing or there is none.
  int64_t GetSymbolAddress(int32_t pHwnd, Text ModuleName, Text SymbolName);
  bool ProcessRunning(int32_t PROC_ID);
  Variant GetRunningProcesses(Text* ProcName = nullptr);

  // Diagnostics.
  int32_t Log(Text sFunc, Text sLoc, Text sAct, std::optional<int32_t> eTime = std::nullopt);
  void LogError(Text ErrLoc, Text ErrFunc, FailureInfo ErrObj, int32_t ErrLine);
  bool SendErrorReport(Variant& RepDat);
  Text SetUIDStr();
  Text GetUIDStr();
  Variant GetRegistryString(Text& KeyPath, Text& KeyVal);
  Text GetGPUName();
  bool IsVista();
  bool IsWindows7();
  Text GetProgramFilesFolder(int32_t oHwnd);

  // User interface.
  void UpdateWarning(Text fNames);
  void CreateToolTip(int32_t FrmHwnd, int32_t AppInst, int32_t CtrlHwnd, Text strText);
  void ShowHelp(Text hFile, Text hPage);
};

}  // namespace zrk
