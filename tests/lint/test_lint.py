"""scripts/lint on scratch copies: each check passes on a clean tree and fails, naming the file and
line, on one that breaks its rule (a wrong-way include, a Qt module a folder may not use, a wrong-way
link, an unformatted line, a clang-tidy finding). No network; the copies live in a temporary folder.

    python3 test_lint.py SOURCE_DIR [TestCase.test_name ...]
"""

import os
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest

SOURCE_DIR = None


def lint(root, *argv):
    """Runs the repository's scripts/lint.py on the tree `root`: (exit status, stdout + stderr)."""
    env = {k: v for k, v in os.environ.items() if k != "CORVINA_LINT_BASE"}
    p = subprocess.run([sys.executable, os.path.join(SOURCE_DIR, "scripts", "lint.py"), "--root", root, *argv],
                       capture_output=True, text=True, env=env, timeout=600)
    return p.returncode, p.stdout + p.stderr


def insert_after_first_include(path, line):
    with open(path, encoding="utf-8") as f:
        lines = f.readlines()
    at = next(i for i, text in enumerate(lines) if text.startswith("#include")) + 1
    lines.insert(at, line + "\n")
    with open(path, "w", encoding="utf-8") as f:
        f.writelines(lines)
    return at + 1  # the inserted line's number


class ScratchTree(unittest.TestCase):
    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="corvina-lint-")
        self.addCleanup(shutil.rmtree, self.root)

    def copy_src(self):
        shutil.copytree(os.path.join(SOURCE_DIR, "src"), os.path.join(self.root, "src"))


class Layering(ScratchTree):
    def setUp(self):
        super().setUp()
        self.copy_src()

    def test_the_tree_passes(self):
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 0, out)
        self.assertIn("lint: layering: ok", out)

    def test_a_model_file_including_a_view_header_fails(self):
        line = insert_after_first_include(os.path.join(self.root, "src/model/ExtensionDate.cpp"),
                                          '#include "views/TodayTableView.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/model/ExtensionDate.cpp:{line}: layering: model/ may not include a views/ header "
                      f'("views/TodayTableView.h"): dependencies point down', out)
        self.assertIn("lint: layering: 1 problem(s)", out)

    def test_a_platform_file_including_a_shared_header_fails(self):
        line = insert_after_first_include(os.path.join(self.root, "src/platform/Log.cpp"),
                                          '#include "shared/ConstVars.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/platform/Log.cpp:{line}: layering: platform/ may not include a shared/ header", out)

    def test_a_bridge_header_outside_app_fails(self):
        line = insert_after_first_include(os.path.join(self.root, "src/widget/SegmentFilter.cpp"),
                                          '#include "bridge/config/BridgeConfig.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/widget/SegmentFilter.cpp:{line}: layering: widget/ may not include a bridge/config/ "
                      "header", out)

    def test_a_bridge_floor_including_a_floor_above_fails(self):
        # the protocol knows nothing of the sync that uses it
        line = insert_after_first_include(os.path.join(self.root, "src/bridge/imap/ImapSession.cpp"),
                                          '#include "bridge/sync/AccountSync.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/bridge/imap/ImapSession.cpp:{line}: layering: bridge/imap/ may not include a "
                      'bridge/sync/ header ("bridge/sync/AccountSync.h")', out)
        self.assertIn("lint: layering: 1 problem(s)", out)

    def test_the_accounts_file_reaching_up_to_the_service_fails(self):
        line = insert_after_first_include(os.path.join(self.root, "src/bridge/config/BridgeConfig.cpp"),
                                          '#include "bridge/service/LiveBridge.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/bridge/config/BridgeConfig.cpp:{line}: layering: bridge/config/ may not include a "
                      "bridge/service/ header", out)

    def test_a_floor_including_a_floor_below_passes(self):
        insert_after_first_include(os.path.join(self.root, "src/bridge/service/LiveBridge.cpp"),
                                   '#include "bridge/imap/ImapSession.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 0, out)

    def test_a_file_flat_in_the_bridge_folder_fails(self):
        with open(os.path.join(self.root, "src/bridge/Loose.h"), "w", encoding="utf-8") as f:
            f.write("#pragma once\n")
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn("src/bridge/Loose.h: layering: the folder src/bridge/ is not in the folder table", out)

    def test_one_program_including_another_programs_header_fails(self):
        line = insert_after_first_include(os.path.join(self.root, "src/app/share/ShareCommand.cpp"),
                                          '#include "app/today/StatusLine.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/app/share/ShareCommand.cpp:{line}: layering: app/share/ may not include a app/today/ "
                      "header", out)

    def test_the_widget_program_including_the_bridge_fails(self):
        line = insert_after_first_include(os.path.join(self.root, "src/app/today/ListWatch.cpp"),
                                          '#include "bridge/sync/BridgeStatus.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/app/today/ListWatch.cpp:{line}: layering: app/today/ may not include a bridge/sync/ "
                      "header", out)

    def test_the_widget_program_linking_the_bridge_fails(self):
        path = os.path.join(self.root, "src/app/today/CMakeLists.txt")
        with open(path, encoding="utf-8") as f:
            text = f.read()
        self.assertIn("PUBLIC corvina::widget", text)
        with open(path, "w", encoding="utf-8") as f:
            f.write(text.replace("PUBLIC corvina::widget", "PUBLIC corvina::bridge corvina::widget"))
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn("src/app/today/CMakeLists.txt:", out)
        self.assertIn("layering: app/today/ links corvina::bridge, which it may not use", out)

    def test_a_relative_path_to_another_folder_fails(self):
        line = insert_after_first_include(os.path.join(self.root, "src/model/ExtensionDate.cpp"),
                                          '#include "../views/TodayTableView.h"')
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/model/ExtensionDate.cpp:{line}: layering: #include \"../views/TodayTableView.h\" "
                      "reaches another folder by a relative path", out)

    def test_qt_widgets_in_model_fails(self):
        line = insert_after_first_include(os.path.join(self.root, "src/model/ExtensionDate.cpp"),
                                          "#include <QWidget>")
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/model/ExtensionDate.cpp:{line}: layering: #include <QWidget> is QtWidgets, which model/ "
                      "may not use", out)

    def test_qt_gui_in_model_fails_outside_the_named_exception(self):
        # ExtensionMessage.h may include <QImage> (the avatar); another model file may not
        line = insert_after_first_include(os.path.join(self.root, "src/model/ExtensionAccount.h"),
                                          "#include <QImage>")
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/model/ExtensionAccount.h:{line}: layering: #include <QImage> is QtGui", out)

    def test_a_wrong_way_link_fails(self):
        path = os.path.join(self.root, "src/model/CMakeLists.txt")
        with open(path, encoding="utf-8") as f:
            text = f.read()
        self.assertIn("PUBLIC corvina::platform", text)
        with open(path, "w", encoding="utf-8") as f:
            f.write(text.replace("PUBLIC corvina::platform", "PUBLIC corvina::views corvina::platform"))
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn("src/model/CMakeLists.txt:", out)
        self.assertIn("layering: model/ links corvina::views, which it may not use", out)

    def test_exposing_src_as_an_include_folder_fails(self):
        path = os.path.join(self.root, "src/model/CMakeLists.txt")
        with open(path, "a", encoding="utf-8") as f:
            f.write("target_include_directories(corvina_model PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/..)\n")
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn("lets a target see every folder's headers", out)

    def test_a_folder_missing_from_the_table_fails(self):
        os.makedirs(os.path.join(self.root, "src/extra"))
        with open(os.path.join(self.root, "src/extra/Extra.h"), "w", encoding="utf-8") as f:
            f.write("#pragma once\n")
        status, out = lint(self.root, "--only", "layering")
        self.assertEqual(status, 1, out)
        self.assertIn("src/extra/Extra.h: layering: the folder src/extra/ is not in the folder table", out)


class Format(ScratchTree):
    def setUp(self):
        super().setUp()
        shutil.copytree(os.path.join(SOURCE_DIR, "src", "model"), os.path.join(self.root, "src", "model"))
        shutil.copy(os.path.join(SOURCE_DIR, ".clang-format"), self.root)

    def test_formatted_files_pass(self):
        status, out = lint(self.root, "--only", "format")
        self.assertEqual(status, 0, out)
        self.assertIn("lint: format: ok", out)

    def test_an_unformatted_file_fails_and_fix_rewrites_it(self):
        path = os.path.join(self.root, "src/model/ExtensionDate.cpp")
        with open(path, encoding="utf-8") as f:
            lines = f.readlines()
        lines.append("namespace corvina { int  unformatted( int a ){ return a*2; } }\n")
        with open(path, "w", encoding="utf-8") as f:
            f.writelines(lines)
        status, out = lint(self.root, "--only", "format")
        self.assertEqual(status, 1, out)
        self.assertIn(f"src/model/ExtensionDate.cpp:{len(lines)}: format: not as .clang-format has it", out)

        status, out = lint(self.root, "--only", "format", "--fix")
        self.assertEqual(status, 0, out)
        self.assertIn("src/model/ExtensionDate.cpp: reformatted", out)
        with open(path, encoding="utf-8") as f:
            self.assertIn("int unformatted(int a) {", f.read())
        status, out = lint(self.root, "--only", "format")
        self.assertEqual(status, 0, out)


CLEAN = textwrap.dedent("""\
    namespace corvina {

    class Base {
    public:
        virtual ~Base() = default;
        virtual int value() const { return 1; }
    };

    class Derived : public Base {
    public:
        int value() const override { return 2; }
    };

    int twice(const Base& item) {
        return 2 * item.value();
    }

    } // namespace corvina
    """)


class Tidy(ScratchTree):
    """A one-file tree with its own compile commands and the repository's .clang-tidy."""

    def setUp(self):
        super().setUp()
        os.makedirs(os.path.join(self.root, "src", "model"))
        os.makedirs(os.path.join(self.root, "build"))
        shutil.copy(os.path.join(SOURCE_DIR, ".clang-tidy"), self.root)
        self.source = os.path.join(self.root, "src", "model", "Probe.cpp")
        self.write(CLEAN)
        with open(os.path.join(self.root, "build", "compile_commands.json"), "w", encoding="utf-8") as f:
            f.write('[{"directory": "%s", "file": "%s", "command": "c++ -std=c++20 -c %s -o Probe.o"}]'
                    % (os.path.join(self.root, "build"), self.source, self.source))
        self.build = os.path.join(self.root, "build")

    def write(self, text):
        with open(self.source, "w", encoding="utf-8") as f:
            f.write(text)

    def git(self, *argv):
        subprocess.run(["git", "-C", self.root, "-c", "user.name=lint test", "-c", "user.email=lint@test.invalid",
                        *argv], check=True, capture_output=True)

    def test_a_clean_file_passes(self):
        status, out = lint(self.root, "--only", "tidy", "--build", self.build, "--all")
        self.assertEqual(status, 0, out)
        self.assertIn("lint: tidy: ok (1 sources", out)

    def test_a_missing_override_fails(self):
        self.write(CLEAN.replace("int value() const override {", "int value() const {"))
        status, out = lint(self.root, "--only", "tidy", "--build", self.build, "--all")
        self.assertEqual(status, 1, out)
        self.assertIn("src/model/Probe.cpp:11:", out)
        self.assertIn("modernize-use-override", out)

    def test_a_use_after_move_fails(self):
        self.write("#include <string>\n#include <utility>\n\nstd::size_t f(std::string s) {\n"
                   "    std::string t = std::move(s);\n    return s.size() + t.size();\n}\n")
        status, out = lint(self.root, "--only", "tidy", "--build", self.build, "src/model/Probe.cpp")
        self.assertEqual(status, 1, out)
        self.assertIn("src/model/Probe.cpp:6:", out)
        self.assertIn("bugprone-use-after-move", out)

    def test_a_unity_build_is_refused_in_words(self):
        # CI's batched build has a compile command per batch, none for the source itself
        unity = os.path.join(self.build, "Unity", "unity_0_cxx.cxx")
        os.makedirs(os.path.dirname(unity))
        with open(unity, "w", encoding="utf-8") as f:
            f.write('#include "%s"\n' % self.source)
        with open(os.path.join(self.build, "compile_commands.json"), "w", encoding="utf-8") as f:
            f.write('[{"directory": "%s", "file": "%s", "command": "c++ -std=c++20 -c %s -o u.o"}]'
                    % (self.build, unity, unity))
        status, out = lint(self.root, "--only", "tidy", "--build", self.build, "--all")
        self.assertEqual(status, 2, out)
        self.assertIn("is a unity build", out)
        self.assertIn("-DCMAKE_UNITY_BUILD=OFF", out)

    def test_only_the_changed_files_are_checked(self):
        self.git("init", "-q", "-b", "topic")
        self.git("add", "-A")
        self.git("commit", "-q", "-m", "clean")
        # a commit that changes no source: nothing to run
        with open(os.path.join(self.root, "README"), "w", encoding="utf-8") as f:
            f.write("notes\n")
        self.git("add", "-A")
        self.git("commit", "-q", "-m", "notes")
        status, out = lint(self.root, "--only", "tidy", "--build", self.build)
        self.assertEqual(status, 0, out)
        self.assertIn("no source of src/ changed: nothing to check", out)
        # the last commit brings a finding: the default base (the parent of HEAD here) catches it
        self.write(CLEAN.replace("int value() const override {", "int value() const {"))
        self.git("commit", "-q", "-am", "finding")
        status, out = lint(self.root, "--only", "tidy", "--build", self.build)
        self.assertEqual(status, 1, out)
        self.assertIn("modernize-use-override", out)
        self.assertIn("the parent of HEAD", out)
        # against an explicit base that already has the finding, nothing changed
        status, out = lint(self.root, "--only", "tidy", "--build", self.build, "--base", "HEAD")
        self.assertEqual(status, 0, out)


if __name__ == "__main__":
    SOURCE_DIR = os.path.realpath(sys.argv[1])
    unittest.main(argv=[sys.argv[0], "-v", *sys.argv[2:]])
