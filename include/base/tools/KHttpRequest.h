// The HTTP/1.1 mini server: CKHttpRequest (one parsed request),
// CKHttpMiniServer (the accept loop on its own thread) and CKHttpMiniClient
// (one self-deleting thread per connection, one request each).
#ifndef KELVOR_KHTTPREQUEST_H
#define KELVOR_KHTTPREQUEST_H

#include <atomic>

#include <base/classes/list/KList.h>
#include <base/tools/KDefs.h>
#include <base/tools/KListParamValue.h>
#include <base/tools/KMem.h>
#include <base/tools/KSocket.h>
#include <base/tools/KString.h>
#include <base/tools/KThread.h>

class KELVOR_API CKHttpRequest {
public:
  // Stores the request line and, when it is not empty, parses it.
  explicit CKHttpRequest(const char* szLine = nullptr);
  CKHttpRequest(const CKHttpRequest& r);
  CKHttpRequest& operator=(const CKHttpRequest& r);
  virtual ~CKHttpRequest();

  // The request line: type, URL and parameters; the error text is a trace
  // on success too.
  int Parse();
  // "Name: value" lines into the headers, the "Cookie" line into the cookies.
  int ParseHeaders(const CKList& lines);

  CKString Type() const { return m_strType; }
  CKString Url() const { return m_strUrl; }
  CKString Data() const { return m_strData; }
  CKString Error() const { return m_strError; }
  CKString Line() const { return m_strLine; }
  // Parameters, headers and cookies: empty when absent. Value is case-
  // sensitive and reads the name=value words Parse found after the URL on
  // the request line; cookies ignore case.
  CKString Value(const char* szName) const { return m_Params.GetValue(szName); }
  CKString HeaderGet(const char* szName, int bNoCase) const { return m_Headers.GetValue(szName, bNoCase); }
  CKString GetCookie(const char* szName) const { return m_Cookies.GetValue(szName, TRUE); }
  const CKListParamValue& Headers() const { return m_Headers; }
  const CKListParamValue& Cookies() const { return m_Cookies; }
  // Exactly n bytes of p, NULs included.
  void SetData(unsigned char* p, int n);

  CKString m_strType;
  CKListParamValue m_Params;

protected:
  CKString m_strLine;
  CKString m_strUrl;
  CKString m_strData;
  CKListParamValue m_Headers;
  CKString m_strError;
  CKListParamValue m_Cookies;
};

// URL decoding in place: '+' to space, then each "%HH" sequence, every
// occurrence at once.
// URL decoding in place: '+' becomes a blank, then each "%XX" that is a
// hexadecimal byte is replaced (every occurrence of it), stopping at the
// first one that is not; a '%' in the last two places stays.
KELVOR_API void HttpRequestParseString(CKString& s);

class CKHttpMiniServer;

class KELVOR_API CKHttpMiniClient : public CKThread, public CKSocket {
public:
  CKHttpMiniClient();
  ~CKHttpMiniClient() override;

  // Takes the accepted connection and the server that counts it.
  int SetSocket(const CKSocket& s, CKHttpMiniServer* pServer);
  int Read();
  // Each text becomes one "Set-Cookie: " line of the answer.
  void AddCookie(const char* szText);
  void WriteCookies();
  // Fills body (and may change headers) for the request; nothing here.
  virtual void DispatchUrl(CKHttpRequest* pRequest, CKString& headers, CKString& body);
  void Func() override;

  CKString m_strHost;

protected:
  // The "Set-Cookie: " lines of the cookies added so far.
  CKString CookieBlock() const;
  // Reads until the headers are complete (or until nWant bytes are there,
  // when nWant is non-zero); FALSE on time-out, end of stream, failure or
  // an overlong request.
  int ReadUntil(unsigned nWant, int* pnHeaderEnd);

  CKHttpMiniServer* m_pServer;
  CKMem m_mem;
  CKList m_listCookies;
  CKList m_listSpare;  // kept for derived classes; unused here
  uint32_t m_nStartTick;
};

class KELVOR_API CKHttpMiniServer : public CKThread, public CKSocket {
public:
  CKHttpMiniServer();
  ~CKHttpMiniServer() override;

  // 0 binds an ephemeral port; Port() then gives the one bound.
  void SetPort(unsigned short nPort) { m_nPort = nPort; }
  unsigned short Port() const { return m_nPort; }

  // Listens on every address of the port (non-blocking, largest backlog)
  // and starts the accept loop on this thread; FALSE when the socket cannot
  // be set up.
  int StartServer();
  // Accepts one waiting connection, if any, and starts a client thread for
  // it; FALSE only when accepting fails.
  int AcceptNewConnections();
  // Override to serve with a derived client; the default is a plain one.
  virtual CKHttpMiniClient* GetNewClient();
  // The header block every answer starts with (200 OK, date, server line).
  virtual CKString GetDefaultHeaders();
  // The text of the last Windows Sockets error code.
  CKString LastError();
  void Func() override;

  // Ends the accept loop, closes the listening socket and waits for every
  // connection thread to end.
  void StopAndWait(int nSeconds);

  // Limits of one connection: the time to deliver a complete request
  // (milliseconds), the header block and the body sizes (bytes).
  void SetRequestTimeout(unsigned long nMs) { m_nRequestTimeoutMs = nMs; }
  unsigned long RequestTimeout() const { return m_nRequestTimeoutMs; }
  void SetHeaderLimit(unsigned n) { m_nHeaderLimit = n; }
  unsigned HeaderLimit() const { return m_nHeaderLimit; }
  void SetBodyLimit(unsigned n) { m_nBodyLimit = n; }
  unsigned BodyLimit() const { return m_nBodyLimit; }
  // Connection threads still running.
  int ClientCount() const { return m_nClients.load(); }
  int IsShuttingDown() const { return m_bShuttingDown.load(); }

protected:
  friend class CKHttpMiniClient;

  // AcceptNewConnections, telling whether a connection was taken.
  int AcceptOne(int* pbAccepted);

  unsigned short m_nPort;
  unsigned long m_nRequestTimeoutMs;
  unsigned m_nHeaderLimit;
  unsigned m_nBodyLimit;
  std::atomic<int> m_nClients;
  std::atomic<int> m_bShuttingDown;
};

#endif  // KELVOR_KHTTPREQUEST_H
