// Manual pages and completions: what --help says, and what the shells make of it.

#include <regex>

#include "Program.h"

namespace {

using namespace program_testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::UnorderedElementsAreArray;

constexpr const char* bashPage = ORVACAM_PAGES "/bash-completion/completions/orvacam";
constexpr const char* zshPage = ORVACAM_PAGES "/zsh/site-functions/_orvacam";
constexpr const char* fishPage = ORVACAM_PAGES "/fish/vendor_completions.d/orvacam.fish";

Names linesOf(const std::string& text) {
  Names all;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    if (!line.empty()) all.insert(line);
  return all;
}

class Pages : public Program {
 protected:
  /// The names behind two spaces at the beginning of a line of help.
  Names optionsOf(const std::string& help) const {
    Names all;
    const std::regex line("(^|\n)  ((-[^ ,\n]+, )*-[^ ,\n]+)"), name("-[^ ,]+");
    for (std::sregex_iterator i(help.begin(), help.end(), line), end; i != end; ++i) {
      const std::string names = (*i)[2];
      for (std::sregex_iterator n(names.begin(), names.end(), name); n != end; ++n)
        all.insert(n->str());
    }
    return all;
  }
  Names commands() const {
    Names all;
    const std::string help = good({"--help"});
    const std::regex line("\n  ([a-z]+) ");
    for (std::sregex_iterator i(help.begin(), help.end(), line), end; i != end; ++i)
      all.insert((*i)[1]);
    return all;
  }
  static std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  Ran start(const std::string& program, const Arguments& arguments) const {
    return runProgram(program, folder.path(), arguments);
  }
  /// What a real bash completes the last word to.
  Names bash(const Arguments& words) const {
    Arguments all = {"-c",
                     "source \"$0\"; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _orvacam; "
                     "printf '%s\\n' \"${COMPREPLY[@]}\"",
                     bashPage, "orvacam"};
    all.insert(all.end(), words.begin(), words.end());
    const Ran ran = start("bash", all);
    EXPECT_EQ(ran.err, "");
    return linesOf(ran.out);
  }
};

TEST_F(Pages, SayOfEveryCommandWhatItsHelpSays) {
  const Names all = commands();
  EXPECT_THAT(all, IsSupersetOf({"convert", "info", "stats", "check", "stack", "cameras", "simulate"}));
  EXPECT_THAT(bash({""}), UnorderedElementsAreArray(all));
  const std::string zsh = contentOf(zshPage), fish = contentOf(fishPage),
                    program = contentOf(ORVACAM_PAGES "/man/man1/orvacam.1");
  for (const std::string& command : all) {
    SCOPED_TRACE(command);
    const std::string help = good({command, "--help"});
    const Names options = optionsOf(help);
    EXPECT_THAT(options, Contains("--help"));
    EXPECT_THAT(program, ::testing::HasSubstr("\\fB" + command + "\\fR"));
    // The manual page has the same options, each with the text that help breaks into lines.
    std::string page = std::regex_replace(contentOf(ORVACAM_PAGES "/man/man1/orvacam-" + command + ".1"),
                                          std::regex("\\\\-"), "-");
    Names inPage;
    const std::regex bold("\\\\fB(-[^\\\\]+)\\\\fR");
    for (std::sregex_iterator i(page.begin(), page.end(), bold), end; i != end; ++i)
      inPage.insert((*i)[1]);
    EXPECT_EQ(inPage, options);
    EXPECT_EQ(bash({command, "-"}), options);
    for (const std::string& option : options) {
      const bool isLong = option.rfind("--", 0) == 0;
      EXPECT_THAT(
          fish, ::testing::ContainsRegex("_from " + command + "'[^\n]* -" +
                                         (isLong ? "l " + option.substr(2) : "s " + option.substr(1)) + " "));
      EXPECT_THAT(zsh, ::testing::HasSubstr(option));
    }
    // No option is without words of its own.
    EXPECT_FALSE(std::regex_search(page, std::regex("\\.TP\n[^\n]*\n(\n|\\.TP)")));
  }
}

TEST_F(Pages, AreManualPagesWithoutWarnings) {
  Names all = commands();
  for (const std::string& command : all) {
    const Ran ran = start("man", {"--warnings", "-l", ORVACAM_PAGES "/man/man1/orvacam-" + command + ".1"});
    EXPECT_EQ(ran.exitCode, 0);
    EXPECT_EQ(ran.err, "") << command;
    EXPECT_THAT(ran.out, ::testing::HasSubstr("orvacam-" + command));
  }
  EXPECT_EQ(start("man", {"--warnings", "-l", ORVACAM_PAGES "/man/man1/orvacam.1"}).err, "");
}

TEST_F(Pages, CompleteFormatsCamerasPlanesAndFilesInBash) {
  writeFlat("first frame.raw", 1);
  fs::create_directory(folder.path() / "folder");
  EXPECT_THAT(bash({"conv"}), ElementsAre("convert"));
  EXPECT_THAT(bash({"convert", "-f", "ti"}), ElementsAre("tiff"));
  EXPECT_THAT(bash({"convert", "--format", "p"}), ElementsAre("png", "png16"));
  EXPECT_THAT(bash({"convert", "--format", "=", "o"}), ElementsAre("ome-tiff"));
  EXPECT_THAT(bash({"convert", "--format", "="}), Contains("fits"));
  EXPECT_THAT(bash({"convert", "--planes", "low,m"}), ElementsAre("low,merged"));
  EXPECT_THAT(bash({"simulate", "GSENSE4"}), ElementsAre("GSENSE400", "GSENSE4040"));
  EXPECT_THAT(bash({"simulate", "GSENSE400", "--mode", "h"}), ElementsAre("hdr"));
  EXPECT_THAT(bash({"gains", "IMX"}), ElementsAre("IMX183"));
  EXPECT_THAT(bash({"convert", "fi"}), ElementsAre("first frame.raw"));
  EXPECT_THAT(bash({"convert", "--dsnu", "f"}), ElementsAre("first frame.raw", "folder"));
  EXPECT_THAT(bash({"convert", "-o", "f"}), ElementsAre("folder"));
  EXPECT_THAT(bash({"calibrate", ""}), ElementsAre("bias", "dark", "flat"));
  EXPECT_THAT(bash({"calibrate", "bias", "fi"}), ElementsAre("first frame.raw"));
  EXPECT_THAT(bash({"convert", "--jobs", ""}), ::testing::IsEmpty());
  EXPECT_THAT(bash({"measure", "--flats", "first frame.raw", "fi"}), ElementsAre("first frame.raw"));
  EXPECT_THAT(bash({"--v"}), ElementsAre("--version"));
}

#ifdef ORVACAM_FISH
TEST_F(Pages, CompleteTheSameInFish) {
  writeFlat("first.raw", 1);
  fs::create_directory(folder.path() / "folder");
  const auto fish = [&](const std::string& line) {
    const Ran ran = runProgram(ORVACAM_FISH, folder.path(),
                               {"--no-config", "-c", "source $argv[1]; complete -C $argv[2]", fishPage, line},
                               {{{"HOME", folder.path().string()}}, 0, {}});
    Names words;
    for (const std::string& each : linesOf(ran.out))
      words.insert(each.substr(0, each.find('\t')));
    return words;
  };
  EXPECT_THAT(fish("orvacam conv"), ElementsAre("convert"));
  EXPECT_THAT(fish("orvacam convert -f ti"), ElementsAre("tiff"));
  EXPECT_THAT(fish("orvacam convert --planes low,m"), Contains("low,merged"));
  EXPECT_THAT(fish("orvacam simulate GSENSE4"), IsSupersetOf({"GSENSE400", "GSENSE4040"}));
  EXPECT_THAT(fish("orvacam convert fi"), Contains("first.raw"));
  EXPECT_THAT(fish("orvacam convert -o f"), ElementsAre("folder/"));
  EXPECT_THAT(fish("orvacam convert --reprod"), ElementsAre("--reproducible"));
  EXPECT_THAT(fish("orvacam convert --format=om"), ElementsAre("--format=ome-tiff"));
  EXPECT_THAT(fish("orvacam convert --dsnu fi"), Contains("first.raw"));
  EXPECT_THAT(fish("orvacam gains IM"), ElementsAre("IMX183"));
  EXPECT_THAT(fish("orvacam calibrate fl"), Contains("flat"));
  EXPECT_THAT(fish("orvacam calibrate flat fi"), Contains("first.raw"));
  EXPECT_THAT(fish("orvacam measure --flats first.raw fi"), Contains("first.raw"));
}
#endif

#ifdef ORVACAM_ZSH
// A shell within a shell: Tab works on a terminal only. Writes each line as Tab leaves it.
constexpr const char* completedByZsh = R"(
zmodload zsh/zpty
zpty inner "TERM=dumb zsh -f -i"
zpty -w inner "unset zle_bracketed_paste; fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -d $2
give() { print -r -- \"\$BUFFER\" >> $2.lines; BUFFER= }
zle -N give; bindkey '^G' give; bindkey '^I' complete-word; unsetopt auto_menu; : > $2.lines"
wait_for_lines() { for i in {1..500}; do
  zpty -r -t inner ignored; [[ -e $1.lines && $(wc -l < $1.lines) -ge $2 ]] && return; sleep 0.02; done }
file=$2; shift 2
wait_for_lines $file 0
for ((n = 1; n <= $#; ++n)); do zpty -w -n inner "${@[n]}"$'\t\a'; wait_for_lines $file $n; done
zpty -d inner
cat $file.lines
)";

TEST_F(Pages, CompleteTheSameInZsh) {
  writeFlat("first.raw", 1);
  fs::create_directory(folder.path() / "folder");
  const std::pair<std::string, std::string> completed[] = {
      {"conv", "convert "},
      {"convert -f ti", "convert -f tiff "},
      {"convert --format=om", "convert --format=ome-tiff "},
      {"convert --planes low,m", "convert --planes low,merged,"},
      {"convert fi", "convert first.raw "},
      {"convert --dsnu fi", "convert --dsnu first.raw "},
      {"convert -o f", "convert -o folder/"},
      {"convert --reprod", "convert --reproducible "},
      {"simulate GSENSE4", "simulate GSENSE40"},
      {"simulate GSENSE400 --mode h", "simulate GSENSE400 --mode hdr "},
      {"gains IM", "gains IMX183 "},
      {"calibrate fl", "calibrate flat "},
      {"calibrate flat fi", "calibrate flat first.raw "},
      {"measure --flats first.raw fi", "measure --flats first.raw first.raw "},
      {"measure --flats first.raw --dar", "measure --flats first.raw --darks="}};
  Arguments all = {
      "-f", "-c", completedByZsh, "zsh", fs::path(zshPage).parent_path().string(), folder.file("dump")};
  std::string expected;
  for (const auto& [line, whole] : completed) {
    all.push_back("orvacam " + line);
    expected += "orvacam " + whole + "\n";
  }
  const Ran ran = runProgram(ORVACAM_ZSH, folder.path(), all, {{{"HOME", folder.path().string()}}, 0, {}});
  EXPECT_EQ(ran.out, expected) << ran.err;
}
#endif

}  // namespace
