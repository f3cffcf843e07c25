// The HTTP/1.1 mini server: request parsing, the per-connection client
// thread and the accepting server thread.
#define KSRC_PATH "src/KHttpRequest"

#include <base/tools/KHttpRequest.h>

#include <cstdio>
#include <cstring>

#include <base/tools/KDateTime.h>
#include <base/tools/KDebug.h>
#include <base/tools/KStr.h>

#include "KAlloc.h"
#include "platform/KPlatform.h"

namespace {

const unsigned long kChunk = 65536;
// The first receive's room: a whole ordinary request.
const unsigned kFirstRoom = 4096;
// The accept loop's wait for a connection, and the slice in which a waiting
// connection notices that its server stops.
const unsigned long kPollMicros = 50000;

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Position of "\r\n\r\n" in the first n bytes of p, read as a C text (the
// search stops at a NUL); -1 when absent.
int FindHeaderEnd(const unsigned char* p, unsigned n) {
  for (unsigned i = 0; i + 3 < n; ++i) {
    if (p[i] == 0) return -1;
    if (p[i] == '\r' && p[i + 1] == '\n' && p[i + 2] == '\r' && p[i + 3] == '\n') return (int)i;
  }
  return -1;
}

// A content length as the client's decimal reading of it: -1 unless it is
// digits only (blanks around allowed) and at most nMax.
long long ContentLength(const char* s, unsigned nMax) {
  while (*s == ' ' || *s == '\t') ++s;
  if (*s < '0' || *s > '9') return -1;
  unsigned long long n = 0;
  for (; *s >= '0' && *s <= '9'; ++s) {
    n = n * 10 + (unsigned)(*s - '0');
    if (n > nMax) return -1;
  }
  while (*s == ' ' || *s == '\t') ++s;
  return *s ? -1 : (long long)n;
}

// The current date as the Date line gives it. Formatting it reads the time
// zone (a file look-up per call on some systems), so each thread keeps the
// text of the last second it formatted; a second that changed while it was
// formatted is not kept. No destructor: MinGW frees thread-local storage
// before running such destructors.
struct DateCache {
  long long nSecond;
  char sz[40];
};
thread_local DateCache tDate = {-1, {0}};

CKString HttpDateNow() {
  const long long nBefore = (long long)kplat::CurrentTime();
  if (nBefore == tDate.nSecond) return CKString(tDate.sz);
  CKDateTime now;
  now.CurrentDate();
  CKString str = now.FormatHttp(TRUE);
  if ((long long)kplat::CurrentTime() == nBefore && str.GetLength() < sizeof(tDate.sz)) {
    memcpy(tDate.sz, (const char*)str, str.GetLength() + 1);
    tDate.nSecond = nBefore;
  }
  return str;
}

}  // namespace

// ---------------------------------------------------------------- CKHttpRequest
CKHttpRequest::CKHttpRequest(const char* szLine) : m_strLine(szLine) {
  if (!KIsEmpty(m_strLine)) Parse();
}

CKHttpRequest::CKHttpRequest(const CKHttpRequest& r)
    : m_strType(r.m_strType),
      m_Params(r.m_Params),
      m_strLine(r.m_strLine),
      m_strUrl(r.m_strUrl),
      m_strData(r.m_strData),
      m_Headers(r.m_Headers),
      m_strError(r.m_strError),
      m_Cookies(r.m_Cookies) {}

CKHttpRequest& CKHttpRequest::operator=(const CKHttpRequest& r) {
  if (&r == this) return *this;
  m_strType = r.m_strType;
  m_Params = r.m_Params;
  m_strLine = r.m_strLine;
  m_strUrl = r.m_strUrl;
  m_strData = r.m_strData;
  m_Headers = r.m_Headers;
  m_strError = r.m_strError;
  m_Cookies = r.m_Cookies;
  return *this;
}

CKHttpRequest::~CKHttpRequest() {}

int CKHttpRequest::Parse() {
  m_Params.Empty();
  m_strError.Empty();
  if (KIsEmpty(m_strLine)) return FALSE;
  if (KStrBeginWith(m_strLine, "GET", TRUE)) {
    m_strType = "GET";
  } else if (KStrBeginWith(m_strLine, "POST", TRUE)) {
    m_strType = "POST";
  } else {
    m_strError = "Unknown request type";
    return FALSE;
  }
  KASSERT_RETV_T(!KIsEmpty(m_strType), "!KIsEmpty(m_strType)", FALSE);
  const unsigned nSkip = m_strType.GetLength() + 1;
  CKString strRest = nSkip < m_strLine.GetLength() ? m_strLine.Mid(nSkip) : CKString();
  const int q = strRest.Find('?');
  const int sp = strRest.Find(' ');
  if (q < 0 && sp < 0) {
    m_strUrl = strRest;
    m_strError = "DEBUG: after strTmp.Find()";
    return TRUE;
  }
  if (sp < 0) {
    m_strUrl = strRest.Left((unsigned)q);
    m_strError = "DEBUG: after strTmp.Find() 2";
    return TRUE;
  }
  m_strUrl = strRest.Left((unsigned)sp);
  strRest = strRest.Mid((unsigned)sp + 1);
  KTruncate2(strRest, (unsigned)sp);
  HttpRequestParseString(strRest);
  m_Params.FromString(strRest, '=', '?');
  m_strError.Format("DEBUG: after m_Params.FromString() %d", q);
  return TRUE;
}

int CKHttpRequest::ParseHeaders(const CKList& lines) {
  m_Headers.Empty();
  for (int i = 0; i < lines.Count(); ++i) {
    const CKString strLine = lines.Get(i);
    const char* szRest = nullptr;
    const CKString strName = KStrParseToSeparator(strLine, ": ", szRest);
    const CKString strValue(szRest);
    if (KIsEmpty(strName) || KIsEmpty(strValue)) continue;
    m_Headers.AddValue(strName, strValue);
    if (strName.GetLength() == 6 && strName.CompareNoCase("Cookie") == 0)
      m_Cookies.FromString(strValue, "=", "; ");
  }
  return TRUE;
}

void CKHttpRequest::SetData(unsigned char* p, int n) {
  if (n <= 0 || !p) {
    m_strData.Empty();
    return;
  }
  // Through the buffer, so that NUL bytes are kept.
  char* pBuf = m_strData.GetBufferSetLength((unsigned)n);
  if (!pBuf) return;
  memcpy(pBuf, p, (size_t)n);
}

void HttpRequestParseString(CKString& s) {
  s.Replace('+', ' ');
  int p = s.Find('%');
  while (p >= 0 && (unsigned)p + 2 < s.GetLength()) {
    const int hi = HexDigit(s[p + 1]);
    const int lo = HexDigit(s[p + 2]);
    if (hi < 0 || lo < 0) break;
    const char szSeq[4] = {'%', s[p + 1], s[p + 2], 0};
    const char szByte[2] = {(char)(hi * 16 + lo), 0};
    s.Replace(szSeq, szByte);
    p = s.Find('%', (unsigned)p + 1);
  }
}

// ---------------------------------------------------------------- CKHttpMiniClient
CKHttpMiniClient::CKHttpMiniClient() : m_pServer(nullptr), m_nStartTick(0) { m_bAutoDelete = TRUE; }

CKHttpMiniClient::~CKHttpMiniClient() {
  // The connection goes first; then the server may stop waiting for us.
  CKSocket::Close();
  if (m_pServer) --m_pServer->m_nClients;
}

int CKHttpMiniClient::SetSocket(const CKSocket& s, CKHttpMiniServer* pServer) {
  m_pServer = pServer;
  CKSocket::operator=(s);
  const int rc = SetBlockingMode(0);
  if (!rc) return rc;
  int nOn = 1;
  return SetSockOpt(kplat::SockLevelSocket(), kplat::SockOptKeepAlive(), (const char*)&nOn, sizeof(nOn));
}

int CKHttpMiniClient::Read() { return CKSocket::Read(m_mem, kChunk); }

void CKHttpMiniClient::AddCookie(const char* szText) { m_listCookies.Add(szText); }

CKString CKHttpMiniClient::CookieBlock() const {
  CKString str;
  for (int i = 0; i < m_listCookies.Count(); ++i) {
    str += "Set-Cookie: ";
    str += m_listCookies.Get(i);
    str += "\r\n";
  }
  return str;
}

void CKHttpMiniClient::WriteCookies() {
  if (m_listCookies.Count() == 0) return;
  Write((const char*)CookieBlock(), kChunk);
}

void CKHttpMiniClient::DispatchUrl(CKHttpRequest*, CKString&, CKString&) {}

int CKHttpMiniClient::ReadUntil(unsigned nWant, int* pnHeaderEnd) {
  const unsigned long nTimeout = m_pServer ? m_pServer->m_nRequestTimeoutMs : 30000;
  const unsigned nHeaderLimit = m_pServer ? m_pServer->m_nHeaderLimit : 65536;
  unsigned nScanned = 0;
  for (;;) {
    const unsigned n = m_mem.GetLength();
    const unsigned char* p = n ? m_mem.GetFromStart(0, n) : nullptr;
    if (nWant == 0) {
      // Only the new bytes (and the three before them) need a look.
      const unsigned nFrom = nScanned > 3 ? nScanned - 3 : 0;
      if (p && memchr(p, 0, n) == nullptr) {
        const int i = FindHeaderEnd(p + nFrom, n - nFrom);
        if (i >= 0) {
          *pnHeaderEnd = (int)nFrom + i + 4;
          return TRUE;
        }
      } else if (p) {
        const int i = FindHeaderEnd(p, n);
        if (i >= 0) {
          *pnHeaderEnd = i + 4;
          return TRUE;
        }
      }
      nScanned = n;
      if (n > nHeaderLimit) {
        KLog(KLOG_ERROR, "ERROR => CKHttpMiniClient: the request headers exceed the limit");
        return FALSE;
      }
    } else if (n >= nWant) {
      return TRUE;
    }
    if ((uint32_t)(kplat::TickCount() - m_nStartTick) >= nTimeout) return FALSE;
    if (m_pServer && m_pServer->m_bShuttingDown.load()) return FALSE;
    // Waits for data instead of polling; a closed peer is readable too.
    if (!SelectRead(kPollMicros)) continue;
    // One receive per wake-up: the loop looks at the bytes before it waits
    // again. The room grows with the request (a small request costs no
    // 64 KiB buffer to clear), up to the chunk of Read.
    const unsigned nRoom = n < kFirstRoom ? kFirstRoom : n < kChunk ? n : (unsigned)kChunk;
    unsigned char* pRoom = m_mem.GetFromStart(nRoom);
    if (!pRoom) return FALSE;
    const long k = kplat::SockRecv((SOCKET)*this, pRoom, nRoom);
    if (k <= 0) return FALSE;  // failure or end of stream
    m_mem.IncreaseOffset((unsigned)k);
  }
}

void CKHttpMiniClient::Func() {
  m_nStartTick = kplat::TickCount();
  int nHeaderEnd = 0;
  if (!ReadUntil(0, &nHeaderEnd)) return;

  // The request as a C text: it ends at the first NUL, as the search did.
  const unsigned nReceived0 = m_mem.GetLength();
  CKString strText((const char*)nullptr);
  {
    const unsigned char* p = m_mem.GetFromStart(0, nReceived0);
    const void* pNul = memchr(p, 0, nReceived0);
    const unsigned nText = pNul ? (unsigned)((const unsigned char*)pNul - p) : nReceived0;
    char* pBuf = strText.GetBufferSetLength(nText);
    if (pBuf && nText) memcpy(pBuf, p, nText);
  }
  strText.Replace("\r\n", "\n");
  CKString strHeaders = m_pServer ? m_pServer->GetDefaultHeaders() : CKString();

  CKList lines;
  if (strText.GetLength() > 0) KStrParse(&lines, strText, '\n');
  if (strText.GetLength() == 0 || lines.Count() == 0) {
    strHeaders += "\r\n";
    Write((const char*)strHeaders, kChunk);
    return;
  }
  for (int i = 0; i < lines.Count(); ++i) {
    const CKString strLine = lines.Get(i);
    if (KStrBeginWith(strLine, "Host:")) {
      const char* szRest = strLine;
      szRest += KStrBeginWith(szRest, "Host: ") ? 6 : 5;
      m_strHost = szRest;
    }
  }
  CKHttpRequest request(lines.Get(0));
  if (!request.Parse() || !request.ParseHeaders(lines)) {
    strHeaders += "\r\n";
    Write((const char*)strHeaders, kChunk);
    return;
  }

  if (request.m_strType.Compare("POST") == 0) {
    const unsigned nBodyLimit = m_pServer ? m_pServer->m_nBodyLimit : 16u << 20;
    const CKString strLen = request.HeaderGet("content-length", TRUE);
    // No header counts as 0; anything but a decimal within the limit gets
    // the default answer.
    const long long n = KIsEmpty(strLen) ? 0 : ContentLength(strLen, nBodyLimit);
    int bOk = n >= 0;
    // The body may still be on its way: wait for all of it.
    if (bOk && (unsigned long long)nHeaderEnd + (unsigned long long)n > m_mem.GetLength())
      bOk = ReadUntil((unsigned)nHeaderEnd + (unsigned)n, &nHeaderEnd);
    const unsigned nReceived = m_mem.GetLength();
    if (!bOk || (long long)nReceived <= n) {
      strHeaders += "\r\n";
      Write((const char*)strHeaders, kChunk);
      return;
    }
    char szLen[64];
    snprintf(szLen, sizeof(szLen), "Len=%u, content-length=%lld", nReceived, n);
    KLog(szLen);
    request.SetData(m_mem.GetFromStart(0, nReceived) + nHeaderEnd, (int)n);
  }

  CKString strBody;
  DispatchUrl(&request, strHeaders, strBody);
  // One send for the whole answer: the same bytes as the four writes.
  CKString strOut(strHeaders);
  if (m_listCookies.Count() > 0) strOut += CookieBlock();
  strOut += "\r\n";
  strOut += (const char*)strBody;
  Write((const char*)strOut, kChunk);
}

// ---------------------------------------------------------------- CKHttpMiniServer
CKHttpMiniServer::CKHttpMiniServer()
    : m_nPort(80),
      m_nRequestTimeoutMs(30000),
      m_nHeaderLimit(64u * 1024u),
      m_nBodyLimit(16u << 20),
      m_nClients(0),
      m_bShuttingDown(0) {
  m_bAutoDelete = FALSE;
}

CKHttpMiniServer::~CKHttpMiniServer() { StopAndWait(1); }

int CKHttpMiniServer::StartServer() {
  if (!CreateSocketIPV4()) return FALSE;
  if (!Bind(m_nPort, 0)) return FALSE;
  if (!Listen(-1)) return FALSE;
  if (!SetBlockingMode(1)) return FALSE;
  // Port 0 asked the system for one: report the port actually bound.
  if (m_nPort == 0) m_nPort = GetLocalPort();
  m_bShuttingDown = 0;
  // The application owns the server and ends it with StopAndWait.
  m_bAutoDelete = FALSE;
  return Start();
}

int CKHttpMiniServer::AcceptNewConnections() {
  int bAccepted = FALSE;
  return AcceptOne(&bAccepted);
}

int CKHttpMiniServer::AcceptOne(int* pbAccepted) {
  *pbAccepted = FALSE;
  CKHttpMiniClient* pClient = nullptr;
  {
    // The accepted socket's block is shared without a lock: this copy must be
    // gone before the client's thread can drop its own.
    CKSocket connection;
    if (!Accept(connection, TRUE)) return FALSE;
    if (!connection.IsValid()) return TRUE;
    *pbAccepted = TRUE;
    pClient = GetNewClient();
    if (!pClient) return TRUE;
    ++m_nClients;
    pClient->SetSocket(connection, this);
  }
  if (!pClient->Start()) {
    delete pClient;  // never started: it is still ours (and counts itself out)
  }
  return TRUE;
}

CKHttpMiniClient* CKHttpMiniServer::GetNewClient() { return new (std::nothrow) CKHttpMiniClient(); }

CKString CKHttpMiniServer::GetDefaultHeaders() {
  CKString str("HTTP/1.1 200 OK\r\nDate: ");
  str += HttpDateNow();
  str += "\r\nServer: HttpMiniServer\r\n~~~~~~~~~~~~~~: ~~~\r\nConnection: close\r\n"
         "Content-Type: text/html; charset=ISO-8859-1\r\n";
  return str;
}

CKString CKHttpMiniServer::LastError() {
  switch (kplat::SockLastError()) {
    case 10024: return "No more socket descriptors are available.";
    case 10036:
      return "A blocking Windows Sockets 1.1 call is in progress, or the service provider is "
             "still processing a callback function.";
    case 10038: return "An operation was attempted on something that is not a socket.";
    case 10041: return "The specified protocol is the wrong type for this socket.";
    case 10043: return "The specified protocol is not supported.";
    case 10044: return "The specified socket type is not supported in this address family.";
    case 10047: return "The specified address family is not supported.";
    case 10050: return "The network subsystem or the associated service provider has failed.";
    case 10055: return "No buffer space is available. The socket cannot be created.";
    case 10093: return "A successful WSAStartup call must occur before using this function.";
    default: return "Unknown error";
  }
}

void CKHttpMiniServer::Func() {
  if (!IsRunning()) return;
  do {
    // Waits for a connection (up to 50 ms, so that a stop is seen) instead
    // of sleeping; after an accept, looks again at once.
    if (!SelectRead(kPollMicros)) continue;
    // Takes every connection already waiting before it waits again.
    int bAccepted = TRUE;
    while (bAccepted && !IsStopping()) {
      if (!AcceptOne(&bAccepted)) {
        KLog(KLOG_ASSERT, LastError());
        return;
      }
    }
  } while (!IsStopping());
}

void CKHttpMiniServer::StopAndWait(int nSeconds) {
  kplat::NoCancelScope noCancel;
  m_bShuttingDown = 1;
  CKThread::StopAndWait(nSeconds);
  CKSocket::Close();
  // The connections hold a pointer to this server: they must all be gone.
  while (m_nClients.load() > 0) kplat::SleepMs(5);
}
