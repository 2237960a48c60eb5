#!/usr/bin/env bash
# Draws the pictures of the windows with ImageMagick (run by hand after a change; the PNG files
# are kept in the repository and built into the program as Qt resources).
set -euo pipefail
cd "$(dirname "$0")"
font=/usr/share/fonts/truetype/wqy/wqy-microhei.ttc

# The online view's background: a soft diagonal blue with faint rings.
convert -size 900x520 gradient:'#eef5fc'-'#d4e6f7' -rotate 0 \
  -fill none -stroke '#ffffff80' -strokewidth 2 \
  -draw 'circle 760,420 760,220' -draw 'circle 760,420 760,300' -draw 'circle 120,80 120,10' \
  online_back.png

# The title bar: a deep blue band with a light wave and the client's mark on the left.
convert -size 900x64 gradient:'#1d5fa8'-'#2f86d6' -rotate 90 -resize 900x64\! \
  -fill '#ffffff22' -stroke none -draw 'path "M 0,50 C 200,20 400,70 600,40 S 850,20 900,35 L 900,64 L 0,64 Z"' \
  -fill white -draw 'roundrectangle 16,14 52,50 8,8' \
  -fill '#1d5fa8' -draw 'path "M 24,40 Q 34,18 44,40"' -draw 'circle 34,40 34,36' \
  title_bar.png

# The first-run guide: a dark veil over the online view with pointers to its parts.
convert -size 900x610 xc:'#0b2440e0' \
  -fill none -stroke '#ffd24a' -strokewidth 3 \
  -draw 'roundrectangle 20,8 330,56 10,10' -draw 'roundrectangle 700,8 884,56 10,10' \
  -draw 'roundrectangle 20,72 880,540 14,14' \
  -stroke none -fill '#ffd24a' \
  -font "$font" -pointsize 22 \
  -draw "text 40,92 '上网时长：连接以来的时间'" \
  -draw "text 560,92 '断开连接、公众号二维码'" \
  -fill white -pointsize 30 -gravity center -draw "text 0,10 '欢迎使用 dorvik'" \
  -pointsize 20 -draw "text 0,60 '中间区域显示运营商的页面，上方的搜索框可直接搜索'" \
  -fill '#ffd24a' -pointsize 22 -draw "text 0,200 '点击任意位置或按任意键开始使用'" \
  guide_back1.png

# The demo deployment's messaging-app account picture: a code-like pattern of our own with
# three finder squares (random modules from a fixed seed, so every run draws the same).
convert -size 29x29 xc:white -seed 12 +noise Random -channel G -separate +channel \
  -threshold 50% \
  -fill black -draw 'rectangle 0,0 6,6' -draw 'rectangle 22,0 28,6' -draw 'rectangle 0,22 6,28' \
  -fill white -draw 'rectangle 1,1 5,5' -draw 'rectangle 23,1 27,5' -draw 'rectangle 1,23 5,27' \
  -draw 'rectangle 7,0 7,7' -draw 'rectangle 0,7 7,7' -draw 'rectangle 21,0 21,7' -draw 'rectangle 21,7 28,7' \
  -draw 'rectangle 0,21 7,21' -draw 'rectangle 7,21 7,28' \
  -fill black -draw 'rectangle 2,2 4,4' -draw 'rectangle 24,2 26,4' -draw 'rectangle 2,24 4,26' \
  -filter point -resize 232x232 -bordercolor white -border 24 \
  -fill '#07c160' -draw 'roundrectangle 122,122 158,158 6,6' \
  wechat_qr.png
