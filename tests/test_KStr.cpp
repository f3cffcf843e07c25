#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <utility>

#include <base/classes/list/KList.h>
#include <base/tools/KStr.h>

#include "KTestLog.h"
#include "KTestTemp.h"

namespace {

// A splitter's count and the items it left in the list, as "2:a|b".
std::string Split(int n, const CKList& l) {
  std::string s = std::to_string(n) + ":";
  for (int i = 0; i < l.Count(); ++i) s += (i ? "|" : "") + std::string(l.Get(i));
  return s;
}

}  // namespace

TEST(KStr, JoinNumbersBoolsAndCase) {
  EXPECT_STREQ(KAnd("a", nullptr, "b", nullptr, "c"), "abc");
  // The 22- and 40-text forms: every slot joined in order, nulls skipped.
  const char* n = nullptr;
  EXPECT_STREQ(KAnd("a", n, "b", n, n, "c", n, n, n, n, n, n, n, n, n, n, n, n, n, n, "d", "e"),
               "abcde");
  EXPECT_STREQ(KAnd("0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "a", "b", "c", "d", "e", "f",
                    "g", "h", "i", "j", "k", "l", "m", n, "o", "p", "q", "r", "s", "t", "u", "v",
                    "w", "x", "y", "z", "A", "B", "C", "D"),
               "0123456789abcdefghijklmopqrstuvwxyzABCD");
  EXPECT_STREQ(KStr(-255, 16), "-ff");
  EXPECT_STREQ(KStr(-9223372036854775807LL - 1), "-9223372036854775808");

  EXPECT_EQ(KInt2("", 7), 7);
  EXPECT_EQ(KInt2("x", 7), 0);
  // atoi's prefix rules in range; past the int range the number is clamped.
  const std::pair<const char*, int> aInts[] = {
      {" \t-42abc", -42},         {"+17", 17},           {"2147483647", INT_MAX},
      {"2147483648", INT_MAX},     {"4294967296", INT_MAX}, {"-2147483648", INT_MIN},
      {"-2147483649", INT_MIN},    {"-99999999999999999999999", INT_MIN}, {"0x10", 0}};
  for (const auto& c : aInts) EXPECT_EQ(KInt2(c.first, 7), c.second) << c.first;

  EXPECT_EQ(KIsStrictInt("-12"), 1);
  for (const char* s : {"-", "1 ", " 1", "+1", "", "1-2", "--1", "1.0", (const char*)nullptr})
    EXPECT_EQ(KIsStrictInt(s), 0) << s;

  // Numbers past the int range are true, also those whose low 32 bits are 0.
  for (const char* s :
       {"1", "-3", "oui", "Vrai", "TRUE", "yes", "YeS", "4294967296", "-4294967296"})
    EXPECT_EQ(KBool(s), 1) << s;
  for (const char* s : {"no", "0", "faux", "x", "", "yess", "tru", "000000000000000000000"})
    EXPECT_EQ(KBool(s), 0) << s;
  EXPECT_EQ(KBool(nullptr), 0);
  EXPECT_STREQ(KBool2Str(5), "TRUE");
  EXPECT_STREQ(KBool2Str(0), "FALSE");

  EXPECT_STREQ(KStrUpcase("ab\xe9z1"), "AB\xe9Z1");
  EXPECT_EQ(KStrPos("abcb", 'b'), 1);
  EXPECT_EQ(KStrPos("abc", 'z'), -1);
  EXPECT_EQ(KStrPos("abc", 0), -1);

  EXPECT_EQ(KStrBeginWith("Hello", "he", TRUE), 1);
  EXPECT_EQ(KStrBeginWith("Hello", "he", FALSE), 0);
  EXPECT_EQ(KStrBeginWith("He", "Hello", FALSE), 0);
  EXPECT_EQ(KStrBeginWith(nullptr, "", FALSE), 1);
  EXPECT_EQ(KStrICmp("abC", "ABc"), 0);
  EXPECT_GT(KStrICmp("\xe9", "a"), 0);  // unsigned bytes
  EXPECT_EQ(KStrNICmp("abX", "ABy", 2), 0);
}

TEST(KStr, InPlaceHelpersAndShaping) {
  CKString s("abcdef");
  KTruncate2(s, 10);
  EXPECT_STREQ(s, "abcdef");
  CKString t(s);
  KTruncate2(s, 3);
  EXPECT_STREQ(s, "abc");
  EXPECT_STREQ(t, "abcdef");  // the shared copy is untouched

  CKString r;
  KStrPreAlloc(r, 100, 0);
  EXPECT_GE(r.GetAllocLength(), 101u);
  EXPECT_EQ(r.GetLength(), 0u);
  CKString q("hello");
  KStrPreAlloc(q, 3);
  EXPECT_STREQ(q, "hel");

  CKString f("report.TXT");
  EXPECT_EQ(KStrRemoveEnd(f, ".txt"), 0);
  EXPECT_EQ(KStrRemoveEnd(f, ".txt", TRUE), 1);
  EXPECT_STREQ(f, "report");
  EXPECT_EQ(KStrRemoveEnd(f, "longer than report"), 0);

  EXPECT_STREQ(KTrim(" \t a b\r\n"), "a b");
  EXPECT_STREQ(KTrim("\va\v"), "\va\v");  // only space, tab, CR and LF

  EXPECT_STREQ(KStrPad("42", 5, '0', TRUE), "00042");
  EXPECT_STREQ(KStrPad("ab", 4), "ab  ");
  EXPECT_STREQ(KStrPad("abcdef", 4), "abcdef");

  EXPECT_STREQ(KStrSmart("hello world foo", 10), "hello...");
  EXPECT_STREQ(KStrSmart("abcdefghijkl", 8), "abcde...");
  EXPECT_STREQ(KStrSmart("abcdef", 3), "abc");

  EXPECT_STREQ(KStrSize(1023), "1023 B");
  EXPECT_STREQ(KStrSize(1024), "1.0 KB");
  EXPECT_STREQ(KStrSize(10 * 1024 + 300), "10 KB");
  EXPECT_STREQ(KStrSize(1024 * 1024 - 1), "1.0 MB");  // rounding moves up a unit
  EXPECT_STREQ(KStrSize(~0ULL), "16 EB");
  EXPECT_STREQ(KStrBytesPerSec(3 * 1024 * 1024, 2000), "1.5 MB/s");
  EXPECT_STREQ(KStrBytesPerSec(2, 0), "2.0 KB/s");  // 0 ms counts as 1 ms
}

TEST(KStr, SeparatorsKeyValueAndHttp) {
  // As "text|rest|found".
  auto Parse = [](const char* s, char cSep) {
    const char* rest = nullptr;
    int found = -1;
    std::string strText(KStrParseToSeparator(s, cSep, rest, &found));
    return strText + "|" + rest + "|" + std::to_string(found);
  };
  EXPECT_EQ("key|value|1", Parse("key=value", '='));
  EXPECT_EQ("|x|1", Parse("=x", '='));
  EXPECT_EQ("abc||0", Parse("abc", '='));
  EXPECT_EQ("||0", Parse("a=b", '\0'));

  // Walking fields through rest; the text form matches the whole separator.
  std::string joined;
  for (const char* p = "a: 1: 2"; *p;) joined += KStrParseToSeparator(p, ": ", p).GetString() + std::string("|");
  EXPECT_EQ(joined, "a|1|2|");

  CKString k, v;
  EXPECT_EQ(KStrParseKeyValue("  name = \" a b \" ", k, v), 1);
  EXPECT_STREQ(k, "name");
  EXPECT_STREQ(v, " a b ");
  EXPECT_EQ(KStrParseKeyValue("=x", k, v), 0);
  EXPECT_STREQ(v, "x");
  EXPECT_EQ(KStrParseKeyValue(" lonely ", k, v), 0);
  EXPECT_STREQ(k, "lonely");
  EXPECT_EQ(v.GetLength(), 0u);
  EXPECT_EQ(KStrParseKeyValue("a:b=c", k, v, ':'), 1);
  EXPECT_STREQ(v, "b=c");
  // The text parsed may be one of the results.
  k = std::string(40, 'k').append("=v").c_str();
  EXPECT_EQ(KStrParseKeyValue(k, k, v), 1);
  EXPECT_EQ(std::string(k), std::string(40, 'k'));
  EXPECT_STREQ(v, "v");

  EXPECT_STREQ(KHttpDecode("a+b%20c%2fd%41"), "a b c/dA");
  for (const char* s : {"100%", "%zz%4", "a%00b"}) EXPECT_STREQ(KHttpDecode(s), s);
}

TEST(KStr, ParseRunsFieldsAndLines) {
  CKList l;
  l.Add("stale");
  EXPECT_EQ("0:", Split(KStrParse(&l, " a  b ", " "), l));
  EXPECT_EQ("2:a|b", Split(KStrParse(&l, "a  b ", " "), l));
  EXPECT_EQ("3:a|b|c", Split(KStrParse(&l, "a,b;;c", ",;"), l));
  EXPECT_EQ(KStrParse(nullptr, "a,b;;c", ",;"), 3);
  EXPECT_EQ("1:", Split(KStrParse(&l, "a b", nullptr), l));  // count only
  // One separator character: every field counts, empty ones too.
  EXPECT_EQ("4:a||b|", Split(KStrParse(&l, "a;;b;", ';', 0), l));
  EXPECT_EQ("3:a||b", Split(KStrParse(&l, "a,,b", ','), l));
  EXPECT_EQ("2:a|", Split(KStrParse(&l, "a,", ','), l));
  EXPECT_EQ("2:A B|C",
            Split(KStrParse(&l, " a b ,\tc\r\n", ',', KSTR_PARSE_TRIM | KSTR_PARSE_UPCASE), l));
  EXPECT_EQ("1: X ", Split(KStrParse(&l, " x ", ',', KSTR_PARSE_UPCASE), l));
  EXPECT_EQ(KStrParse(nullptr, ";;", ';'), 3);
  EXPECT_EQ("0:", Split(KStrParse(&l, "", ';'), l));

  char buf[4];
  EXPECT_STREQ(KStrParseNth(buf, sizeof(buf), "one  two three", " ", 1), "two");
  EXPECT_STREQ(KStrParseNth(buf, sizeof(buf), "one  two three", " ", 2), "thr");
  EXPECT_STREQ(KStrParseNth(buf, sizeof(buf), "one two", " ", 2), "");
  EXPECT_STREQ(KStrParseNth(buf, sizeof(buf), " one", ' ', 0), "");
  EXPECT_STREQ(KStrParseNth("a;b;;c", ';', 2), "c");
  char own[] = "a bcd";
  EXPECT_STREQ(KStrParseNth(own, sizeof(own), own, " ", 1), "bcd");  // s is buf itself

  EXPECT_EQ("2:a|b", Split(KStrTextToList(&l, "a\r\nb"), l));
  EXPECT_EQ("3:a||b", Split(KStrTextToList(&l, "a\n\rb"), l));
  EXPECT_EQ("2:a|", Split(KStrTextToList(&l, "a\n"), l));
  EXPECT_EQ(KStrTextToList(nullptr, "x\ny\rz"), 3);
  EXPECT_EQ("0:", Split(KStrTextToList(&l, ""), l));

  EXPECT_EQ("4:cp|my file|dest|open",
            Split(KStrTextToWords(&l, "  cp \"my file\"\tdest\n\"open"), l));
  EXPECT_EQ("2:|x", Split(KStrTextToWords(&l, "\"\" x"), l));
  EXPECT_EQ(KStrTextToWords(nullptr, " \t "), 0);
}

TEST(KStr, CLiterals) {
  const char* szText = "a\"b\\c\n\t\r\x01\x7f" "9\xe9";
  CKString lit = KStr2Cstr(szText);
  EXPECT_STREQ(lit, "\"a\\\"b\\\\c\\n\\t\\r\\001\\1779\xe9\"");
  CKString back;
  const char* p = lit;
  ASSERT_EQ(KStrConsumeCstr(p, back), 1);
  EXPECT_STREQ(back, szText);
  EXPECT_EQ(*p, 0);

  const char* q = "  \"x\\x41\\101\\q\" rest";
  ASSERT_EQ(KStrConsumeCstr(q, back), 1);
  EXPECT_STREQ(back, "xAAq");
  EXPECT_STREQ(q, " rest");

  for (const char* bad : {"abc", "\"open", "\"a\\0b\"", "\"\\x\"", "\"\\777\"", "\"end\\"}) {
    const char* r = bad;
    EXPECT_EQ(KStrConsumeCstr(r, back), 0) << bad;
    EXPECT_EQ(r, bad);
    EXPECT_EQ(back.GetLength(), 0u);
  }
  EXPECT_STREQ(KStr2Cstr(nullptr), "\"\"");
  back = std::string(40, ' ').append("\"in place\"").c_str();  // p reads the result's own text
  const char* own = back;
  ASSERT_EQ(KStrConsumeCstr(own, back), 1);
  EXPECT_STREQ(back, "in place");
}

TEST(KStr, Files) {
  CKTestLog log;
  CKTestTempDir dir;
  const std::string strFile = dir.Path("roundtrip.txt");
  const char* szText = "a=1\r\nb=\xe9t\xe9\r\n\r\n";
  ASSERT_EQ(KStrTextToFile(strFile.c_str(), szText), TRUE);
  CKString back;
  ASSERT_EQ(KStrFileToText(strFile.c_str(), back), TRUE);
  EXPECT_STREQ(back, szText);  // binary: line ends kept as written
  ASSERT_EQ(KStrTextToFile(strFile.c_str(), "x", TRUE), TRUE);
  ASSERT_EQ(KStrFileToText(strFile.c_str(), back), TRUE);
  EXPECT_EQ(std::string(back), std::string(szText) + "x");

  // A text larger than one read chunk, replaced and read back.
  std::string big(200000, 'z');
  for (size_t i = 0; i < big.size(); i += 1000) big.replace(i, 3, "abc");
  ASSERT_EQ(KStrTextToFile(strFile.c_str(), big.c_str()), TRUE);
  EXPECT_EQ(KFileStrFindReplace(strFile.c_str(), "abc", "<>"), 200);
  ASSERT_EQ(KStrFileToText(strFile.c_str(), back), TRUE);
  std::string expect = big;
  for (size_t i = 0; (i = expect.find("abc", i)) != std::string::npos; i += 2) expect.replace(i, 3, "<>");
  EXPECT_EQ(std::string(back), expect);
  EXPECT_EQ(KFileStrFindReplace(strFile.c_str(), "none", "x"), 0);
  ASSERT_EQ(KStrTextToFile(strFile.c_str(), "aaaa"), TRUE);
  EXPECT_EQ(KFileStrFindReplace(strFile.c_str(), "aa", "a"), 2);  // no rescan of inserted text
  ASSERT_EQ(KStrFileToText(strFile.c_str(), back), TRUE);
  EXPECT_STREQ(back, "aa");

  back = strFile.c_str();  // the name may be the target's own text
  ASSERT_EQ(KStrFileToText(back, back), TRUE);
  EXPECT_STREQ(back, "aa");
  ASSERT_EQ(KStrTextToFile(strFile.c_str(), ""), TRUE);
  ASSERT_EQ(KStrFileToText(strFile.c_str(), back), TRUE);
  EXPECT_TRUE(back.IsEmpty());

  EXPECT_EQ(0u, log.Count());
  const std::string strMissing = dir.Path("no_such_dir/none.txt");
  back = "old";
  EXPECT_EQ(KStrFileToText(strMissing.c_str(), back), FALSE);
  EXPECT_EQ(back.GetLength(), 0u);
  EXPECT_EQ(KStrTextToFile(strMissing.c_str(), "x"), FALSE);
  EXPECT_EQ(KFileStrFindReplace(strMissing.c_str(), "a", "b"), -1);
  ASSERT_EQ(log.Count(), 3u);
  EXPECT_EQ(log.lines[0].text, "KStrFileToText: cannot open file " + strMissing);
  EXPECT_EQ(log.lines[0].type, 8);
  EXPECT_EQ(KStrTextToFile(nullptr, "x"), FALSE);
  EXPECT_TRUE(log.LastIsAssert("!KIsEmpty(szFile)", "src/KStr", CKTestLog::kReturnValue));
}
