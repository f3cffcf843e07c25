// The page both benchmark servers answer.
#ifndef KELVOR_BENCH_HTTP_PAGE_H
#define KELVOR_BENCH_HTTP_PAGE_H

static const char kBenchPage[] =
    "<!DOCTYPE html>\n<html><head><title>Bench</title></head>\n"
    "<body><h1>Hello</h1><p>A small page for the server benchmark.</p></body></html>\n";

#endif  // KELVOR_BENCH_HTTP_PAGE_H
