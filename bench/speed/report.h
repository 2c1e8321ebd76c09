// The results as a table to read, as Markdown, and as JSON.
#ifndef CACHET_BENCH_REPORT_H
#define CACHET_BENCH_REPORT_H

#include <ostream>

#include "options.h"
#include "results.h"

namespace bench {

void print_text(std::ostream& out, const Options& options, const Results& results);
void print_markdown(std::ostream& out, const Options& options, const Results& results);
// {"rows":N,"order":...,"results":[{"system":...,"operation":...,"ns":...}]}; bytes_per_row has bytes for "ns".
void print_json(std::ostream& out, const Options& options, const Results& results);

}  // namespace bench

#endif
