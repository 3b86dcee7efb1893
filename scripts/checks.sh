# shellcheck shell=bash
# SPDX-License-Identifier: MIT
#
# The variants format, lint and coverage of ./scripts/test, which sources this file after common.sh.

# cxx_sources: prints the names of the C and C++ files, each with a NUL at the end.
cxx_sources() {
    find src include tests examples bench \( -name '*.cpp' -o -name '*.[hc]' \) -print0
}

# format: applies clang-format to the sources.
format() {
    cxx_sources | xargs -0 clang-format -i
    say "Formatted"
}

# lint: checks the sources without running them. It runs all checks before it fails.
lint() {
    local sources scripts failed=()
    mapfile -t -d '' sources < <(cxx_sources)
    # Most scripts have no suffix; the first line identifies them.
    mapfile -t scripts < <(grep -rlE '^#(!.*\<(ba)?sh|.*shellcheck shell=)' scripts .ci examples tests)

    say "clang-format"
    clang-format --dry-run --Werror "${sources[@]}" || failed+=(clang-format)

    say "kept behaviour"
    check_kept || failed+=(kept)

    say "words"
    check_words || failed+=(words)

    say "shellcheck"
    shellcheck --external-sources "${scripts[@]}" || failed+=(shellcheck)

    configure lint -DRTSPSERVER_BUILD_TESTS=ON -DRTSPSERVER_BUILD_EXAMPLES=ON \
        -DRTSPSERVER_BUILD_BENCH=ON
    build lint -- -k 0 || failed+=(clang)

    say "doxygen"
    cmake --build --preset lint --target reference </dev/null >&2 || failed+=(doxygen)

    say "cppcheck"
    cppcheck -j "$(nproc)" --quiet --std=c++17 --language=c++ -Iinclude -Isrc --inline-suppr \
        --enable=warning,performance,portability --error-exitcode=1 src || failed+=(cppcheck)

    # Not the tests: the macros of their framework take minutes.
    say "clang-tidy"
    # It always writes colours, and the names of the files that it checks. Neither is useful here.
    run-clang-tidy -quiet -j "$(nproc)" -p build/lint "$PWD/(src|examples)/.*" 2>/dev/null |
        sed -e 's/\x1b\[[0-9;]*m//g' -e '/^clang-tidy/d' -e '/^$/d' >&2 || failed+=(clang-tidy)
    [[ ${#failed[@]} -eq 0 ]] || die "not clean: ${failed[*]}"
    say "Clean"
}

# check_words: runs codespell, and searches for the words of scripts/words.txt.
check_words() {
    local files word instead found allowed spelling=() good=1
    mapfile -t -d '' files < <(find ./*.md CMakeLists.txt .ci bench cmake docs examples include packaging scripts \
        src tests -type f ! -name '*.json' ! -path '*/node_modules/*' ! -path '*/corpus/*' -print0)

    spelling+=(unkown thresold pasre tooo unknow) # log texts and a method name, which are kept
    spelling+=(alls iif)                          # an option of ffmpeg, a keyword of nftables
    spelling+=(pevent bu)                         # a parameter, a bullet in manual pages
    # The expression excludes escape sequences before a word. codespell ignores binary files.
    codespell --ignore-regex '\\[nrt]' --ignore-words-list "$(IFS=,; echo "${spelling[*]}")" \
        "${files[@]}" || good=

    allowed=$(sed -n 's/^!\([^\t]*\)\t.*/\1/p' scripts/words.txt | paste -sd '|')
    while IFS=$'\t' read -r word instead; do
        [[ -n $word && $word != [#!]* ]] || continue
        found=$(grep -nIiE "\b($word)\b" "${files[@]}" |
            grep -v '^scripts/words\.txt:' | grep -viE "$allowed") || continue
        printf '%s\n    Write instead: %s\n' "$found" "$instead" >&2
        good=
    done <scripts/words.txt
    [[ -n $good ]]
}

# check_kept: compares the marks of kept behaviour in the code with the rows of docs/kept.md: who
# depends on it, its key and the source file. Each mark has the form that the page shows, and each test
# that the page names exists.
check_kept() {
    local mark='// Kept \((clients|hosts|operators)\): \[[a-z0-9-]+\]' differences malformed test missing=()
    differences=$(diff \
        <(grep -rnoE "$mark" src include |
            sed -E 's,^(.*/)?([^/:]+):[0-9]+:// Kept \((.*)\): \[(.*)\]$,\3 \4 \2,' | sort) \
        <(awk -F ' *[|] *' '
            /^## / { audience = tolower(substr($0, 4)) }
            /^[|] `/ { gsub(/`/, ""); sub(/:.*/, "", $5); print audience, $2, $5 }' docs/kept.md | sort))
    malformed=$(grep -rniE '\<kept *(\([^)]*\))? *:' src include | grep -vE "$mark ")
    # shellcheck disable=SC2016  # the backquotes are those of the page
    for test in $(grep -oE '`[A-Za-z0-9]+\.[A-Z][A-Za-z0-9]+`' docs/kept.md | tr -d '\140' | sort -u); do
        grep -rqE "^TEST.*\(${test%.*}, ${test#*.}\)" tests || missing+=("$test")
    done
    [[ -z $differences ]] || printf 'Only in the code (<) or in docs/kept.md (>):\n%s\n' "$differences" >&2
    [[ -z $malformed ]] || printf 'Not in the form of docs/kept.md:\n%s\n' "$malformed" >&2
    [[ ${#missing[@]} -eq 0 ]] || printf 'docs/kept.md names no test of: %s\n' "${missing[*]}" >&2
    [[ -z $differences$malformed && ${#missing[@]} -eq 0 ]]
}

# forget_coverage: removes the records of earlier runs.
forget_coverage() {
    find build/coverage -name '*.gcda' -delete
}

# coverage: prints the coverage of the library's units. It fails if the tests cover less than 92 % of
# the lines, or if a unit has uncovered lines that docs/coverage.md does not explain.
coverage() {
    local table=build/coverage/coverage.csv unit lines covered branches branches_covered
    local all=0 all_covered=0 unnamed=() explained
    explained=$(sed '/^## /,$d' docs/coverage.md) # the first table
    gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches \
        --csv "$table" build/coverage/CMakeFiles/rtspserver_objects.dir </dev/null >&2

    # shellcheck disable=SC2059  # one format for all lines of the table
    {
        local row='%-34s %6s %6s %9s %6s\n'
        printf "$row" unit lines '' branches ''
        while IFS=, read -r unit lines covered _ branches branches_covered _; do
            [[ $unit != filename ]] || continue
            printf "$row" "${unit#src/}" "$lines" "$(percent "$covered" "$lines")" \
                "$branches" "$(percent "$branches_covered" "$branches")"
            all=$((all + lines))
            all_covered=$((all_covered + covered))
            ((lines == covered)) || [[ $explained == *"\`${unit#src/}\`"* ]] || unnamed+=("$unit")
        done <"$table"
        printf "$row" all "$all" "$(percent "$all_covered" "$all")" '' ''
    }
    [[ ${#unnamed[@]} -eq 0 ]] || die "docs/coverage.md does not explain uncovered lines of: ${unnamed[*]}"
    ((all_covered * 100 >= all * 92)) || die "the tests cover less than 92 % of the lines"
}

# percent PART WHOLE
percent() {
    (($2 == 0)) || printf '%d.%d%%' $(($1 * 100 / $2)) $(($1 * 1000 / $2 % 10))
}
