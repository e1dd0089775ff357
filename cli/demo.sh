#!/usr/bin/env bash
# The main job, once through: a scene (or the cube given) is described, pictured, plotted, converted there and back, and
# each copy is checked against its source. Pictures and a summary stay in demo-out/ (or $KS_DEMO_OUT).
#
#   cli/demo.sh BUILD_DIR [CUBE]
set -euo pipefail
export LC_ALL=C

if [[ $# -lt 1 || $# -gt 2 ]]; then
    echo "usage: $0 BUILD_DIR [CUBE]" >&2
    exit 1
fi
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
ks=$(cd "$1" && pwd)/cli/ks
out=${KS_DEMO_OUT:-$root/demo-out}
cube=${2:-}

[[ -x $ks ]] || { echo "$ks is missing; build the project first." >&2; exit 1; }
if [[ -d $out && ! -e $out/summary.md && -n $(ls -A "$out") ]]; then
    echo "$out holds files that this demo did not make; move them, or set KS_DEMO_OUT to another folder." >&2
    exit 1
fi
if [[ -n $cube && $(realpath -m -- "$cube") == "$(realpath -m -- "$out")"/* ]]; then
    echo "$cube lies in $out, which the demo replaces; move it elsewhere first." >&2
    exit 1
fi
rm -rf "$out"
mkdir -p "$out"
summary=$out/summary.md
echo "# kslib demo: unfinished" > "$summary"   # marks the folder as ours, also when a step fails

rows=()
started=$EPOCHREALTIME
seconds() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", b - a }'; }

# step TITLE OUTPUTS COMMAND...: runs and times one command; its notes are kept for the summary.
step() {
    local title=$1 outputs=$2 begin end
    shift 2
    begin=$EPOCHREALTIME
    if ! "$@" 2> "$out/.messages"; then
        cat "$out/.messages" >&2
        echo "failed: $title" >&2
        exit 1
    fi
    end=$EPOCHREALTIME
    printf '  %-34s %7s s   %s\n' "$title" "$(seconds "$begin" "$end")" "$outputs"
    rows+=("| $title | $(seconds "$begin" "$end") s | $outputs |")
}

save_info() { "$ks" info "$cube" > "$out/info.txt"; "$ks" info "$cube" --json > "$out/info.json"; }
value_of() { sed -n "s/^  \"$1\": \([0-9]*\),*$/\1/p" "$out/info.json" | head -n 1; }

# Four pixels well inside the four quarters of the image; fewer where the image is too small for four different ones.
spread_pixels() {
    local width=$1 height=$2 x y
    for y in $((height / 4)) $((3 * height / 4)); do
        for x in $((width / 4)) $((3 * width / 4)); do echo "$x,$y"; done
    done | awk '!seen[$0]++'
}

echo
echo "kslib demo"
if [[ -z $cube ]]; then
    cube=$out/scene.img
    step "generate a scene" "scene.img, scene_truth/" "$ks" synth "$cube" --size 256x256 --bands 224 --seed 1
fi
step "describe it" "info.txt, info.json" save_info
mapfile -t pixels < <(spread_pixels "$(value_of width)" "$(value_of height)")
step "picture" "quicklook.png" "$ks" quicklook "$cube" "$out/quicklook.png"
step "calibrated spectra, vector plot" "spectra.svg" "$ks" spectrum "$cube" "${pixels[@]}" "$out/spectra.svg"
step "calibrated spectra, bitmap plot" "spectra.png" "$ks" spectrum "$cube" "${pixels[@]}" "$out/spectra.png"
step "calibrated spectra, table" "spectra.csv" "$ks" spectrum "$cube" "${pixels[@]}" "$out/spectra.csv"
step "convert to GeoTIFF and check" "copy.tif" "$ks" convert "$cube" "$out/copy.tif" --check
checked_tif=$(sed -n 's/^ks: checked: //p' "$out/.messages")
step "convert back to ENVI and check" "back.img" "$ks" convert "$out/copy.tif" "$out/back.img" --check
checked_envi=$(sed -n 's/^ks: checked: //p' "$out/.messages")
step "learn 256 code vectors" "vq.tif" "$ks" vq train "$cube" "$out/vq.tif" --vectors 256
encode() { "$ks" vq encode "$cube" "$out/vq.tif" "$@" > "$out/vq-error.txt"; }
step "encode with them" "vq.tif, vq-error.{txt,csv,svg,png}" encode \
    --report "$out/vq-error.csv" --report "$out/vq-error.svg" --report "$out/vq-error.png"
step "decode" "vq-decoded.img" "$ks" vq decode "$out/vq.tif" "$out/vq-decoded.img"
compression=$(grep 'code vectors:' "$out/vq-error.txt")
# The band with the smallest, the middle and the largest error among the good ones.
errors=$(awk -F, 'NR > 1 && ($3 == "plot" || $3 == "bmask") { print $4 "," $1 }' "$out/vq-error.csv" | sort -g |
    awk -F, '{ rmse[NR] = $1; band[NR] = $2 } END { if (NR) { m = int((NR + 1) / 2);
        printf "RMSE of a band, stored units: %.4g (b%d) to %.4g (b%d), median %.4g", rmse[1], band[1], rmse[NR], band[NR], rmse[m] } }')
rm -f "$out/.messages"
total=$(seconds "$started" "$EPOCHREALTIME")

{
    echo "# kslib demo"
    echo
    echo "Image: \`$cube\`"
    echo
    echo '```'
    sed '/^$/,$d' "$out/info.txt"
    echo '```'
    echo
    echo "| step | time | made |"
    echo "|---|---|---|"
    printf '%s\n' "${rows[@]}"
    echo
    echo "Copies, compared with their source sample by sample and entry by entry:"
    echo
    echo "- copy.tif: $checked_tif"
    echo "- back.img: $checked_envi"
    echo
    echo "Vector quantization (errors of every band: vq-error.csv):"
    echo
    echo "- $compression"
    echo "- $errors"
    echo
    echo "![errors of vector quantization](vq-error.png)"
    echo
    echo "![quicklook](quicklook.png)"
    echo
    echo "![spectra](spectra.png)"
} > "$summary"

echo
sed '/^$/,$d' "$out/info.txt" | sed 's/^/  /'
echo
echo "  copy.tif: $checked_tif"
echo "  back.img: $checked_envi"
echo "  vq.tif: $compression"
echo "          $errors"
echo
echo "Done in $total s. Look at $out/quicklook.png, $out/spectra.svg and $out/summary.md."
