// A host's side of the relay: starts a tree of processes, sends requests, closes the tree down.
//
//   kiv::DorClient zClient;                                    // starts the relay beside this program
//   const int64_t iModel = zClient.Open(u"/data/bracket.kiv");  // waits until the model has been read
//   kiv::KivByteBuffer vcPayload;
//   kiv::KivPutInt64(vcPayload, iModel);
//   const kiv::DorAnswer zAnswer = zClient.Call(u"DorHandler_GetAsmTreeInfo", vcPayload);
//   zClient.Clear(iModel);                                     // the destructor ends the tree
//
// One client in the life of a process, on one thread: the tree's root folder is the process's work folder.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <vector>

#include "DorRequests.h"
#include "KivByteBuffer.h"
#include "KivSysProcess.h"
#include "KivSysText.h"

namespace kiv {

// The tree could not be started, or has ended, or a request would end it.
class DorClientError : public std::runtime_error {
 public:
  explicit DorClientError(const std::string& strWhat) : std::runtime_error(strWhat) {}
};

// The model could not be read.
class DorReadError : public std::runtime_error {
 public:
  explicit DorReadError(const std::string& strWhat) : std::runtime_error(strWhat) {}
};

struct DorAnswer {
  int32_t m_iStatus = 0;  // one of DorStatus
  KivByteBuffer m_vcResult;
};

struct DorClientOptions {
  KivWString m_csRelay;           // path of the relay; empty: DorRelay beside this program
  KivWString m_csRelayArguments;  // further arguments of the relay, for one that takes some
  // A folder that does not exist yet, relative to this process's current folder; empty: the work folder, which is
  // generated unless the host has settled it.
  KivWString m_csRootFolder;
};

// A relative path means this process's current folder; where that has gone, the path stays as it is.
KivWString DorAbsolutePath(const KivWString& csPath);

class DorClient {
 public:
  // Throws DorClientError, and then leaves no process, and no file or folder that it has made.
  explicit DorClient(const DorClientOptions& zOptions = DorClientOptions());
  ~DorClient();  // Close
  DorClient(const DorClient&) = delete;
  DorClient& operator=(const DorClient&) = delete;

  // Sends one request and waits for its answer. Throws DorClientError if the relay has ended, and without sending
  // anything for what would end the relay: a name that it does not serve, a payload that does not fit the request's
  // form to the last byte, a model that is not open here.
  DorAnswer Call(const KivWString& csRequest, const KivByteBuffer& vcPayload);
  // The same without the checks, into a buffer that is used again; gives the status. For those who measure.
  int32_t CallUnchecked(const KivWString& csRequest, const KivByteBuffer& vcPayload, KivByteBuffer& vcResult);

  // Asks for a model to be read and comes back at once. Relative paths mean this process's current folder.
  int64_t StartOpen(const KivWString& csPath);
  // Status of the read: reading, served, failed.
  int32_t GetReadStatus(int64_t iModel);
  // Waits until a model has been read. pfnWaiting is called between the questions; false from it gives up waiting.
  // Throws DorReadError if the read failed or was given up.
  void AwaitOpen(int64_t iModel, const std::function<bool()>& pfnWaiting = nullptr);
  int64_t Open(const KivWString& csPath, const std::function<bool()>& pfnWaiting = nullptr);
  void Clear(int64_t iModel);

  // Ends the relay and its handlers and removes the root folder and the work folders that they generated, beside the
  // root folder and beside the relay; orphans of earlier trees there go as well. True if nothing was left behind; asked
  // again it gives the same answer.
  bool Close();

  const KivWString& GetRootFolder() const { return m_csRootFolder; }
  int32_t GetRelayPid() const { return m_iRelayPid; }
  // False while it runs, and where the code cannot be had. By rule of the runtime a relay that ends with its tree has
  // 999, of which Linux keeps 231.
  bool GetRelayExitCode(int32_t& iCode) { return m_zRelay.IsOpen() && m_zRelay.GetExitCode(iCode); }
  bool IsOpen() const { return m_bOpen; }
  // Process ids of the tree, the own one first.
  std::vector<int32_t> ListTree() const;
  // Those of the handlers alone.
  std::vector<int32_t> ListHandlers() const;

 private:
  // The id of the model that the request is about; -1 if it opens one.
  int64_t CheckRequest(const DorRequestRow* pzRow, const KivWString& csRequest, const KivByteBuffer& vcPayload) const;
  void StartTree(const KivWString& csRootFolder);
  int32_t StartRelay(const DorClientOptions& zOptions, KivWString& csRelay);
  void RememberTree();
  bool RemoveGeneratedFolders();

  KivWString m_csRootFolder;
  KivWString m_csRelayFolder;  // where the relay's program stands
  int32_t m_iRelayPid = 0;
  KivSysProcess m_zRelay;  // not open where its end cannot be heard of
  bool m_bOpen = false;
  bool m_bClean = false;  // the last Close left nothing behind
  bool m_bRelayEnded = false;
  std::map<int64_t, bool> m_mapModels;  // open ones; true once a request was served
  std::set<int32_t> m_spSeenPids;       // all processes of the tree that were seen, for the clean-up
};

// Builds a payload from text, one word or a few for each field of a row's form. The model id is given.
//   i  123            f  1.5           s  text (KivSysTextExact.h)                 c  x,y,z
//   k  line:a,b,c,d,e,f (kind 0)  or  block:HEX (kind 1)      n  one or two curves, to the end of the words
//   t  HEX, or nothing
// False with the reason in strError.
bool DorBuildPayload(const DorRequestRow& zRow, int64_t iModel, const std::vector<std::string>& vstrWords,
                     KivByteBuffer& vcPayload, std::string& strError);
// The words that a row's form takes, for help texts: "instance face", or where the fields have no names "INT INT".
std::string DorDescribeForm(const DorRequestRow& zRow);

}  // namespace kiv
