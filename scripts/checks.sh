# shellcheck shell=bash
# SPDX-License-Identifier: MIT
#
# What ./scripts/test does beside running the tests; it sources this after common.sh.

# cxx_sources: the files whose layout clang-format decides, each ended by a NUL.
cxx_sources() {
    find src include tests examples bench \( -name '*.cpp' -o -name '*.[hc]' \) -print0
}

# format: lays the sources out as lint expects.
format() {
    cxx_sources | xargs -0 clang-format -i
    say "Formatted"
}

# lint: judges the sources without running them. All judges speak before it fails.
lint() {
    local sources scripts failed=()
    mapfile -t -d '' sources < <(cxx_sources)
    # The first line tells: scripts carry no suffix.
    mapfile -t scripts < <(grep -rlE '^#(!.*\<(ba)?sh|.*shellcheck shell=)' scripts .ci examples tests)

    say "clang-format"
    clang-format --dry-run --Werror "${sources[@]}" || failed+=(clang-format)

    say "kept behaviour"
    check_kept || failed+=(kept)

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

    # The tests are left to the compilers: the macros of their framework alone take minutes.
    say "clang-tidy"
    # It colours whatever it writes; the names of what is being judged are of no use.
    run-clang-tidy -quiet -j "$(nproc)" -p build/lint "$PWD/(src|examples)/.*" 2>/dev/null |
        sed -e 's/\x1b\[[0-9;]*m//g' -e '/^clang-tidy/d' -e '/^$/d' >&2 || failed+=(clang-tidy)
    [[ ${#failed[@]} -eq 0 ]] || die "not clean: ${failed[*]}"
    say "Clean"
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

# forget_coverage: what earlier runs have reached does not count any more.
forget_coverage() {
    find build/coverage -name '*.gcda' -delete
}

# coverage: prints what the tests have reached of the library's units. It fails below 92 % of the
# lines, and when a unit has lines that no test reaches and docs/coverage.md does not say why.
coverage() {
    local table=build/coverage/coverage.csv unit lines covered branches branches_covered
    local all=0 all_covered=0 unnamed=()
    gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches \
        --csv "$table" build/coverage/CMakeFiles/rtspserver_objects.dir </dev/null >&2

    # shellcheck disable=SC2059  # one layout for head, rows and foot
    {
        local row='%-34s %6s %6s %9s %6s\n'
        printf "$row" unit lines '' branches ''
        while IFS=, read -r unit lines covered _ branches branches_covered _; do
            [[ $unit != filename ]] || continue
            printf "$row" "${unit#src/}" "$lines" "$(percent "$covered" "$lines")" \
                "$branches" "$(percent "$branches_covered" "$branches")"
            all=$((all + lines))
            all_covered=$((all_covered + covered))
            ((lines == covered)) || grep -qF "\`${unit#src/}\`" docs/coverage.md || unnamed+=("$unit")
        done <"$table"
        printf "$row" all "$all" "$(percent "$all_covered" "$all")" '' ''
    }
    [[ ${#unnamed[@]} -eq 0 ]] || die "docs/coverage.md does not say why lines are left: ${unnamed[*]}"
    ((all_covered * 100 >= all * 92)) || die "less than 92 % of the lines"
}

# percent PART WHOLE
percent() {
    (($2 == 0)) || printf '%d.%d%%' $(($1 * 100 / $2)) $(($1 * 1000 / $2 % 10))
}
