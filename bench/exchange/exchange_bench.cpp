// Answers compare.py, which sets our readers and writers beside those of other programs: a line in
// names the work, a line out has its seconds, by the clock and of the processor, or "failed" and
// why.
//
//   make SIDE                a model of SIDE^3 hexahedra
//   write PATH [NAME=VALUE]  exports it
//   deck PATH                a file into a deck
//   session PATH             the deck that was read last into a session
//   insert PATH              what it takes to insert its nodes and elements one by one
//   netcdf PATH              what the library takes to read all arrays of such a file
//   peak                     megabytes that the process had at most

#include <ctime>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <memory>
#ifdef QX_HAS_EXODUS
#include <netcdf.h>
#endif
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"

#include "bench/harness.h"
#include "exchange/transfer.h"

namespace qx::bench {
namespace {

constexpr std::int32_t kHexahedron = 14;

struct Seconds {
  double clock = 0;
  double processor = 0;
};

template <class Work>
Seconds Timed(Work&& work) {
  const std::clock_t begin = std::clock();
  const double clock = Time(std::forward<Work>(work));
  return {clock, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC};
}

class Server {
 public:
  std::string Answer(const std::string& line) {
    std::istringstream words(line);
    std::string work, path;
    words >> work >> path;
    if (work == "make") return Make(std::stoi(path));
    if (work == "write") {
      std::vector<std::string> options;
      for (std::string option; words >> option;) options.push_back(option);
      return Write(path, options);
    }
    if (work == "deck") return ReadDeck(path);
    if (work == "session") return IntoSession(path);
    if (work == "insert") return Insert();
    if (work == "netcdf") return ReadNetcdf(path);
    if (work == "peak") return Peak();
    return "failed: " + line;
  }

 private:
  static std::string Told(const Seconds& seconds) {
    return fmt::format("{:.6f} {:.6f}", seconds.clock, seconds.processor);
  }

  std::string Make(int side) {
    model_ = std::make_unique<CQXDBSession>(AddStandardPools);
    auto& nodes = *model_->GetPool<DPoolNode>(code::kNode);
    auto& elements = *model_->GetPool<DPoolElem>(code::kElem);
    std::vector<ITR> at;
    tagTNode node;
    for (int k = 0; k <= side; ++k) {
      for (int j = 0; j <= side; ++j) {
        for (int i = 0; i <= side; ++i) {
          ++node.key;
          // Digits as a mesher leaves them: mostly all that a double has.
          node.position = {0.1 * i / 7, 0.1 * j / 3, 0.1 * k / 9};
          at.push_back(nodes.InsertNU(node));
        }
      }
    }
    tagTElem element;
    element.type = kHexahedron;
    const auto row = static_cast<std::size_t>(side) + 1;
    for (std::size_t k = 0; k + 1 < row; ++k) {
      for (std::size_t j = 0; j + 1 < row; ++j) {
        for (std::size_t i = 0; i + 1 < row; ++i) {
          ++element.key;
          const ITR* const base = &at[i + row * (j + row * k)];
          const ITR* const top = base + row * row;
          element.nodes = {base[0], base[1], base[row + 1], base[row],
                           top[0],  top[1],  top[row + 1],  top[row]};
          elements.InsertNU(element);
        }
      }
    }
    return Told({});
  }

  std::string Write(const std::string& path, const std::vector<std::string>& given) {
    const auto format = exchange::FormatToWrite(path);
    if (!format) return "failed: " + format.Error().Line();
    const auto values = exchange::ParseOptionValues((*format)->write_options, given);
    if (!values) return "failed: " + values.Error().Line();
    exchange::ExportOptions options;
    options.write.values = *values;
    exchange::LossReport report;
    Outcome done;
    const Seconds seconds = Timed([&] { done = ExportFile(*model_, path, options, report); });
    return done ? Told(seconds) : "failed: " + done.Error().Line();
  }

  std::string ReadDeck(const std::string& path) {
    deck_ = {};
    const auto format = exchange::FormatToRead(path);
    if (!format) return "failed: " + format.Error().Line();
    std::vector<Failure> faults;
    std::string failed;
    const Seconds seconds = Timed([&] {
      Result<exchange::Deck> deck = (*format)->read(path, {}, faults);
      if (deck) {
        deck_ = std::move(*deck);
      } else {
        failed = deck.Error().Line();
      }
    });
    return failed.empty() ? Told(seconds) : "failed: " + failed;
  }

  std::string IntoSession(const std::string& path) {
    CQXDBSession session(AddStandardPools);
    exchange::LossReport report;
    Outcome done;
    exchange::Deck deck = deck_;
    const Seconds seconds = Timed([&] { done = AddDeck(session, std::move(deck), path, report); });
    return done ? Told(seconds) : "failed: " + done.Error().Line();
  }

  /// Records one by one into a session, as one step that can be undone, with the nodes found by
  /// key.
  std::string Insert() {
    CQXDBSession session(AddStandardPools);
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    auto& elements = *session.GetPool<DPoolElem>(code::kElem);
    return Told(Timed([&] {
      CTransaction step(&session);
      step.Begin(u"insert");
      nodes.SetHashSize(static_cast<std::int32_t>(deck_.node_keys.size()));
      elements.SetHashSize(static_cast<std::int32_t>(deck_.elements.size()));
      tagTNode node;
      for (std::size_t i = 0; i < deck_.node_keys.size(); ++i) {
        node.key = deck_.node_keys[i];
        const double* const at = &deck_.coordinates[3 * i];
        node.position = {at[0], at[1], at[2]};
        nodes.InsertNU(node);
      }
      tagTElem element;
      std::vector<ITR> found;
      for (std::size_t e = 0; e < deck_.elements.size(); ++e) {
        const std::size_t count = deck_.NodesOf(e);
        found.resize(count);
        nodes.Set().FindMany({deck_.connectivity.data() + deck_.elements[e].first, count}, found);
        element.key = deck_.elements[e].key;
        element.type = deck_.elements[e].type;
        element.nodes.Assign(found.data(), count);
        elements.InsertNU(element);
      }
      step.Commit();
    }));
  }

#ifdef QX_HAS_EXODUS
  static std::string ReadNetcdf(const std::string& path) {
    int wrong = NC_NOERR;
    const auto check = [&](int status) { wrong = wrong ? wrong : status; };
    std::vector<std::unique_ptr<char[]>> arrays;
    const Seconds seconds = Timed([&] {
      int file = -1;
      int count = 0;
      check(nc_open(path.c_str(), NC_NOWRITE, &file));
      check(nc_inq_nvars(file, &count));
      for (int variable = 0; variable < count && !wrong; ++variable) {
        nc_type type{};
        int dimensions[NC_MAX_VAR_DIMS];
        int rank = 0;
        std::size_t bytes = 0;
        check(nc_inq_var(file, variable, nullptr, &type, &rank, dimensions, nullptr));
        check(nc_inq_type(file, type, nullptr, &bytes));
        for (int d = 0; d < rank; ++d) {
          std::size_t length = 0;
          check(nc_inq_dimlen(file, dimensions[d], &length));
          bytes *= length;
        }
        arrays.push_back(std::make_unique_for_overwrite<char[]>(bytes));
        check(nc_get_var(file, variable, arrays.back().get()));
      }
      check(nc_close(file));
    });
    return wrong ? std::string("failed: ") + nc_strerror(wrong) : Told(seconds);
  }
#else
  static std::string ReadNetcdf(const std::string&) { return "failed: built without netCDF"; }
#endif

  static std::string Peak() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmHWM:"))
        return fmt::format("{0:.1f} {0:.1f}", std::stod(line.substr(6)) / 1e3);
    }
    return "failed: the system does not tell";
  }

  std::unique_ptr<CQXDBSession> model_;
  exchange::Deck deck_;
};

}  // namespace
}  // namespace qx::bench

int main() {
  qx::bench::Server server;
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << server.Answer(line) << std::endl;
  }
}
