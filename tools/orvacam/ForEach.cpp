#include "ForEach.h"

#include <map>

#include "Progress.h"
#include "Workers.h"

namespace tool {

namespace {

int attemptInput(const Input& input, const Task& task, std::string& result) {
  return attemptCode(shownName(input), [&] { return task(input, result); });
}

/// One run over all inputs: what is said of each when it is done.
class Run {
 public:
  Run(const std::vector<Input>& inputs, const Collect& collect)
      : m_inputs(inputs), m_collect(collect), m_progress(inputs.size()) {}

  void here(const Task& task) {
    keepMemory();
    for (const Input& input : m_inputs) {
      std::string result;
      const int code = attemptInput(input, task, result);
      done(input, code, std::move(result));
    }
  }

  void beside(const Task& task, unsigned jobs) {
    Workers workers(jobs, [&](const std::string& job, std::string& result) {
      return attemptInput(m_inputs.at(std::stoul(job)), task, result);
    });
    // One that takes long holds the answers of others back, but not of too many.
    const std::size_t ahead = std::size_t{8} * jobs;
    std::map<std::size_t, Answer> early;
    for (std::size_t next = 0, shown = 0; shown < m_inputs.size();) {
      while (next < m_inputs.size() && next < shown + ahead && workers.give(next, std::to_string(next)))
        ++next;
      for (Answer& answer : workers.wait()) {
        const std::size_t number = answer.number;
        early.emplace(number, std::move(answer));
      }
      for (auto first = early.begin(); first != early.end() && first->first == shown; ++shown) {
        show(std::move(first->second));
        first = early.erase(first);
      }
    }
  }

  int code() const { return m_outcome.code(); }

 private:
  void show(Answer answer) {
    const Input& input = m_inputs[answer.number];
    for (Said& said : answer.said) {
      if (said.kind == Said::Complaint && said.subject.empty()) said.subject = shownName(input);
      sayAgain(said);
    }
    done(input, answer.code, std::move(answer.result));
  }

  void done(const Input& input, int code, std::string result) {
    m_outcome.add(code);
    if (m_collect != nullptr && !result.empty())
      m_outcome.add(attempt(shownName(input), [&] { m_collect(input, std::move(result)); }));
    m_progress.step(shownName(input), code != Good);
  }

  const std::vector<Input>& m_inputs;
  const Collect& m_collect;
  Progress m_progress;
  Outcome m_outcome;
};

}  // namespace

void requireUsable(const Input& input) {
  if (!input.wrong.empty()) throw Failure(input.wrong);
}

std::string shownName(const Input& input) {
  return input.path == "-" ? "standard input" : input.path;
}

int forEach(const std::vector<Input>& inputs, const Task& task, const Collect& collect) {
  Run run(inputs, collect);
  const auto jobs = static_cast<unsigned>(std::min<std::size_t>(settings().jobs, inputs.size()));
  if (jobs > 1)
    run.beside(task, jobs);
  else
    run.here(task);
  return run.code();
}

int forEach(const std::vector<Input>& inputs, const std::function<void(const Input&)>& task) {
  return forEach(inputs, [&](const Input& input, std::string&) {
    requireUsable(input);
    task(input);
    return static_cast<int>(Good);
  });
}

int untilFailure(const std::vector<Input>& inputs, const std::function<void(const Input&)>& task) {
  Progress progress(inputs.size());
  for (const Input& input : inputs) {
    const int code = attempt(shownName(input), [&] {
      requireUsable(input);
      task(input);
    });
    progress.step(shownName(input), code != Good);
    if (code != Good) return code;
  }
  return Good;
}

}  // namespace tool
