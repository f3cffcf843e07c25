// Date parsers. Property: a text that parses prints back, through the
// library's own writer of that form, to a text that parses to the same date;
// a date-only text is never a date-and-time text.
#include <cstddef>
#include <cstdint>
#include <string>

#include <base/tools/KDateTime.h>

#include "KFuzz.h"

namespace {

std::string Fields(const CKDateTime& d) {
  return std::string(KTimeForMySql(d).GetString());
}

bool IsInvalidDate(const CKDateTime& d) {
  return d.GetYear() == -1 && d.GetMonth() == -1 && d.GetDay() == -1 && d.GetHour() == -1 &&
         d.GetMinute() == -1 && d.GetSecond() == -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string strText((const char*)data, size);
  const char* sz = strText.c_str();  // a zero byte ends the text, as for any caller

  const CKDateTime mysql = KTimeFromMySql(sz);
  if (!mysql.IsNull()) {
    KFUZZ_EQ(Fields(KTimeFromMySql(mysql.FormatMySql())), Fields(mysql));
    KFUZZ_EQ(Fields(KTimeFromMySql(KTimeForMySql(mysql))), Fields(mysql));
    KFUZZ_CHECK(mysql.GetYear() >= 0 && mysql.GetYear() <= 9999);
  }

  const CKDateTime date = KTimeParseDate(sz);
  if (!date.IsNull()) {
    KFUZZ_EQ(Fields(KTimeParseDate(date.FormatShort())), Fields(date));
    KFUZZ_CHECK(KTimeParseDateTime(sz).IsNull());
    KFUZZ_CHECK(date.GetHour() == 0 && date.GetMinute() == 0 && date.GetSecond() == 0);
  }

  const CKDateTime dateTime = KTimeParseDateTime(sz);
  if (!dateTime.IsNull()) {
    KFUZZ_EQ(Fields(KTimeParseDateTime(dateTime.Format2('/', ':'))), Fields(dateTime));
    KFUZZ_CHECK(dateTime.GetSecond() == 0);
  }

  // Stored texts: what reads as a date is a valid OLE date whose stored text
  // reads back to it; everything else is the invalid date. OLE day 0 (30
  // December 1899, midnight) stores as "0", which reads as the invalid date
  // by design.
  const CKDateTime stored = KTimeFromStoredStr(sz);
  if (!IsInvalidDate(stored)) {
    const COleDateTime ole = stored;
    KFUZZ_CHECK(ole.GetStatus() == COleDateTime::valid);
    const CKString strStored = KTimeToStoredStr(stored);
    if ((double)ole != 0.0) KFUZZ_EQ(Fields(KTimeFromStoredStr(strStored)), Fields(stored));
  }
  return 0;
}
