<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="zh_CN">
<context>
    <name>RecognitionLanguage</name>
    <message>
        <source>中文</source>
        <translation>Chinese</translation>
    </message>
    <message>
        <source>英文</source>
        <translation>English</translation>
    </message>
    <message>
        <source>日文</source>
        <translation>Japanese</translation>
    </message>
    <message>
        <source>韩文</source>
        <translation>Korean</translation>
    </message>
    <message>
        <source>粤语</source>
        <translation>Cantonese</translation>
    </message>
    <message>
        <source>法文</source>
        <translation>French</translation>
    </message>
    <message>
        <source>德文</source>
        <translation>German</translation>
    </message>
    <message>
        <source>西班牙文</source>
        <translation>Spanish</translation>
    </message>
    <message>
        <source>俄文</source>
        <translation>Russian</translation>
    </message>
    <message>
        <source>葡萄牙文</source>
        <translation>Portuguese</translation>
    </message>
    <message>
        <source>意大利文</source>
        <translation>Italian</translation>
    </message>
    <message>
        <source>此服务暂不支持识别%1，请联系管理员配置%1识别</source>
        <translation>This service cannot recognise %1 yet; ask its administrator to set up %1 recognition</translation>
    </message>
</context>
<context>
    <name>WordBlock</name>
    <message>
        <source>词“%1”的可信度不在 0 到 1 之间</source>
        <translation>The confidence of the word “%1” is not between 0 and 1</translation>
    </message>
</context>
<context>
    <name>kavel-cli</name>
    <message>
        <source>待核对的词：%1 个</source>
        <translation>Words to check: %1</translation>
    </message>
    <message>
        <source>（可信度 %1）</source>
        <translation> (confidence %1)</translation>
    </message>
</context>
<context>
    <name>kavel::EditorViewModel</name>
    <message>
        <source>打开项目失败: </source>
        <translation>Could not open the project: </translation>
    </message>
    <message>
        <source>转写稿无法读取，原文件已备份到 </source>
        <translation>The transcript could not be read; the original file was backed up to </translation>
    </message>
    <message>
        <source>保存失败：</source>
        <translation>Saving failed: </translation>
    </message>
</context>
<context>
    <name>kavel::ExportFlow</name>
    <message>
        <source>未生成有效的文件</source>
        <translation>No valid file was produced</translation>
    </message>
    <message>
        <source>请选择导出目录</source>
        <translation>Please choose an export folder</translation>
    </message>
    <message>
        <source>未找到项目</source>
        <translation>Project not found</translation>
    </message>
    <message>
        <source>项目中没有源媒体</source>
        <translation>The project has no source media</translation>
    </message>
    <message>
        <source>没有可导出的内容</source>
        <translation>There is nothing to export</translation>
    </message>
    <message>
        <source>字幕导出失败: </source>
        <translation>Subtitle export failed: </translation>
    </message>
    <message>
        <source>项目交换文件导出失败</source>
        <translation>Interchange file export failed</translation>
    </message>
    <message>
        <source>项目交换文件导出失败: </source>
        <translation>Interchange file export failed: </translation>
    </message>
    <message>
        <source>音频导出失败: </source>
        <translation>Audio export failed: </translation>
    </message>
    <message>
        <source>检测到当前项目为音频素材，已自动跳过视频导出。</source>
        <translation>This project is audio only, so the video export was skipped.</translation>
    </message>
    <message>
        <source>视频导出失败: </source>
        <translation>Video export failed: </translation>
    </message>
    <message>
        <source>%1分%2秒</source>
        <extracomment>Minutes and two-digit seconds, as a clock shows them in the language.</extracomment>
        <translation>%1:%2</translation>
    </message>
    <message>
        <source>%1小时%2分%3秒</source>
        <translation>%1:%2:%3</translation>
    </message>
</context>
<context>
    <name>kavel::ImportJob</name>
    <message>
        <source>提取音频</source>
        <translation>Extracting audio</translation>
    </message>
    <message>
        <source>上传音频</source>
        <translation>Uploading audio</translation>
    </message>
    <message>
        <source>语音识别中</source>
        <translation>Recognising speech</translation>
    </message>
    <message>
        <source>等待导入...</source>
        <translation>Waiting to import...</translation>
    </message>
    <message>
        <source>预计剩余 %1:%2</source>
        <translation>%1:%2 left</translation>
    </message>
    <message>
        <source>等待导入</source>
        <translation>Waiting to import</translation>
    </message>
    <message>
        <source>导入失败</source>
        <translation>Import failed</translation>
    </message>
    <message>
        <source>正在导入</source>
        <translation>Importing</translation>
    </message>
</context>
<context>
    <name>kavel::ImportPipeline</name>
    <message>
        <source>语音识别失败: </source>
        <translation>Speech recognition failed: </translation>
    </message>
    <message>
        <source>导入被中断（应用已退出），请重新导入。</source>
        <translation>The import was interrupted (the app quit). Please import again.</translation>
    </message>
    <message>
        <source>正在识别语音... (即将完成)</source>
        <translation>Recognising speech... (almost done)</translation>
    </message>
    <message>
        <source>正在识别语音... (</source>
        <translation>Recognising speech... (</translation>
    </message>
    <message>
        <source>导入失败</source>
        <translation>Import failed</translation>
    </message>
    <message>
        <source>导入需要语音识别服务和媒体引擎</source>
        <translation>Importing needs the speech recognition service and the media engine</translation>
    </message>
    <message>
        <source>正在导入视频 (%1/%2)...</source>
        <translation>Importing video (%1/%2)...</translation>
    </message>
    <message>
        <source>正在提取音频...</source>
        <translation>Extracting audio...</translation>
    </message>
    <message>
        <source>正在提取音频... %1%</source>
        <translation>Extracting audio... %1%</translation>
    </message>
    <message>
        <source>正在上传音频进行语音识别...</source>
        <translation>Uploading audio for speech recognition...</translation>
    </message>
    <message>
        <source>正在识别语音...</source>
        <translation>Recognising speech...</translation>
    </message>
    <message>
        <source>语音识别任务已失效（可能服务器已重启），请重新导入视频再试。</source>
        <translation>The recognition task is no longer valid (the server may have restarted). Please import the video again.</translation>
    </message>
    <message>
        <source>未知错误</source>
        <translation>Unknown error</translation>
    </message>
    <message>
        <source>语音识别失败，请重试。</source>
        <translation>Speech recognition failed. Please try again.</translation>
    </message>
    <message>
        <source>嘿，您的视频已经准备好了，让我们开始吧！</source>
        <translation>Your video is ready. Let’s get started!</translation>
    </message>
    <message>
        <source>登录已过期，请重新登录后再导入</source>
        <translation>Your sign-in has expired; sign in again, then import</translation>
    </message>
</context>
<context>
    <name>kavel::KavelProject</name>
    <message>
        <source>无法重命名：%1。</source>
        <translation>Cannot rename: %1.</translation>
    </message>
    <message>
        <source>无法重命名：已有名为“%1”的项目。</source>
        <translation>Cannot rename: a project named “%1” already exists.</translation>
    </message>
    <message>
        <source>无法重命名项目“%1”。</source>
        <translation>Could not rename the project “%1”.</translation>
    </message>
</context>
<context>
    <name>kavel::LocalRenderService</name>
    <message>
        <source>：磁盘空间不足</source>
        <translation>: the disk is full</translation>
    </message>
    <message>
        <source>：MP3 编码器没有完成转换</source>
        <translation>: the MP3 encoder did not finish</translation>
    </message>
</context>
<context>
    <name>kavel::ProjectStore</name>
    <message>
        <source>zh_CN</source>
        <extracomment>The locale (a code such as en_US) whose month names the project cards show.</extracomment>
        <translation>en_US</translation>
    </message>
    <message>
        <source>M月d日</source>
        <translation>MMM d</translation>
    </message>
    <message>
        <source>无法重命名：项目“%1”正在使用中。</source>
        <translation>Cannot rename: the project “%1” is in use.</translation>
    </message>
</context>
<context>
    <name>kavel::app::AccountPage</name>
    <message>
        <source>登录</source>
        <translation>Sign In</translation>
    </message>
    <message>
        <source>退出登录</source>
        <translation>Sign Out</translation>
    </message>
    <message>
        <source>我的</source>
        <translation>Account</translation>
    </message>
    <message>
        <source>已登录：%1</source>
        <translation>Signed in: %1</translation>
    </message>
    <message>
        <source>未登录</source>
        <translation>Not signed in</translation>
    </message>
</context>
<context>
    <name>kavel::app::AlertBox</name>
    <message>
        <source>确定</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>kavel::app::ExportDialog</name>
    <message>
        <source>正在导出字幕…</source>
        <translation>Exporting subtitles…</translation>
    </message>
    <message>
        <source>正在导出音频…</source>
        <translation>Exporting audio…</translation>
    </message>
    <message>
        <source>正在导出视频…</source>
        <translation>Exporting video…</translation>
    </message>
    <message>
        <source>正在导出项目交换文件…</source>
        <translation>Exporting the interchange file…</translation>
    </message>
    <message>
        <source>选择…</source>
        <translation>Choose…</translation>
    </message>
    <message>
        <source>视频</source>
        <translation>Video</translation>
    </message>
    <message>
        <source>音频</source>
        <translation>Audio</translation>
    </message>
    <message>
        <source>字幕</source>
        <translation>Subtitles</translation>
    </message>
    <message>
        <source>项目交换文件</source>
        <translation>Interchange file</translation>
    </message>
    <message>
        <source>打开所在文件夹</source>
        <translation>Open Containing Folder</translation>
    </message>
    <message>
        <source>导出</source>
        <translation>Export</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>输入导出标题</source>
        <translation>Enter a title for the export</translation>
    </message>
    <message>
        <source>按句</source>
        <translation>By phrase</translation>
    </message>
    <message>
        <source>逐词</source>
        <translation>Word by word</translation>
    </message>
    <message>
        <source>按句：整句一条字幕，在句末标点、较长停顿或过长处断开</source>
        <translation>By phrase: one subtitle per phrase, broken at end punctuation, longer pauses or when too long</translation>
    </message>
    <message>
        <source>把剪辑交给其他剪辑软件：引用原始素材，按帧精确的剪辑列表</source>
        <translation>Hand the edit to other editing software: a frame-accurate edit list that refers to the original media</translation>
    </message>
    <message>
        <source>标题</source>
        <translation>Title</translation>
    </message>
    <message>
        <source>导出目录</source>
        <translation>Export folder</translation>
    </message>
    <message>
        <source>时长</source>
        <translation>Duration</translation>
    </message>
    <message>
        <source>选择导出目录</source>
        <translation>Choose the export folder</translation>
    </message>
    <message>
        <source>未选择</source>
        <translation>None chosen</translation>
    </message>
    <message>
        <source>导出已停止</source>
        <translation>Export stopped</translation>
    </message>
    <message>
        <source>未写完的 %1 已删除</source>
        <translation>The unfinished %1 was deleted</translation>
    </message>
    <message>
        <source>已完成的文件已保留：</source>
        <translation>Finished files were kept: </translation>
    </message>
    <message>
        <source>、</source>
        <translation>, </translation>
    </message>
    <message>
        <source>导出完成</source>
        <translation>Export finished</translation>
    </message>
    <message>
        <source>没有导出任何文件</source>
        <translation>No files were exported</translation>
    </message>
    <message>
        <source>已写出 %1</source>
        <translation>Wrote %1</translation>
    </message>
    <message>
        <source>停止</source>
        <translation>Stop</translation>
    </message>
    <message>
        <source>完成</source>
        <translation>Done</translation>
    </message>
    <message>
        <source>字幕烧录</source>
        <translation>Burn in subtitles</translation>
    </message>
    <message>
        <source>小</source>
        <translation>Small</translation>
    </message>
    <message>
        <source>中</source>
        <translation>Medium</translation>
    </message>
    <message>
        <source>大</source>
        <translation>Large</translation>
    </message>
    <message>
        <source>把字幕画进视频画面，按“字幕”一栏选的逐词或按句</source>
        <translation>Draw the subtitles into the picture, per word or per sentence as chosen under “Subtitles”</translation>
    </message>
    <message>
        <source>字幕文字的大小，随画面高度缩放</source>
        <translation>Size of the subtitle text, scaled with the picture height</translation>
    </message>
    <message>
        <source>按 EBU R128 测量剪辑后的声音，整体用同一个增益调到目标响度，真峰值不超过 -1 dBTP</source>
        <translation>Measures the edited sound by EBU R128 and brings it to the target loudness with one gain for the whole, the true peak at most -1 dBTP</translation>
    </message>
    <message>
        <source>响度标准化</source>
        <translation>Loudness</translation>
    </message>
    <message>
        <source>降噪</source>
        <translation>Noise reduction</translation>
    </message>
    <message>
        <source>去除持续的底噪（嘶声、电源嗡声），不移动任何声音的时间</source>
        <translation>Takes out steady background hiss and mains hum without moving any sound in time</translation>
    </message>
</context>
<context>
    <name>kavel::app::FullscreenVideoWindow</name>
    <message>
        <source>退出全屏</source>
        <translation>Exit Full Screen</translation>
    </message>
</context>
<context>
    <name>kavel::app::GuidePage</name>
    <message>
        <source>使用指南</source>
        <translation>Guide</translation>
    </message>
    <message>
        <source>观看演示视频，快速了解 Kavel AI 的使用方法</source>
        <translation>Watch the demonstration video to learn how to use Kavel AI</translation>
    </message>
    <message>
        <source>音量</source>
        <translation>Volume</translation>
    </message>
    <message>
        <source>暂停</source>
        <translation>Pause</translation>
    </message>
    <message>
        <source>播放</source>
        <translation>Play</translation>
    </message>
</context>
<context>
    <name>kavel::app::HomePage</name>
    <message>
        <source>媒体文件</source>
        <translation>Media files</translation>
    </message>
    <message>
        <source>撤销</source>
        <translation>Undo</translation>
    </message>
    <message>
        <source>我的项目</source>
        <translation>My Projects</translation>
    </message>
    <message>
        <source>搜索</source>
        <translation>Search</translation>
    </message>
    <message>
        <source>网格</source>
        <translation>Grid</translation>
    </message>
    <message>
        <source>列表</source>
        <translation>List</translation>
    </message>
    <message>
        <source>重命名项目</source>
        <translation>Rename Project</translation>
    </message>
    <message>
        <source>新的项目名称：</source>
        <translation>New project name:</translation>
    </message>
    <message>
        <source>重命名</source>
        <translation>Rename</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>已将“%1”移到回收站</source>
        <translation>Moved “%1” to the trash</translation>
    </message>
    <message>
        <source>还没有项目</source>
        <translation>No projects yet</translation>
    </message>
    <message>
        <source>没有匹配的项目</source>
        <translation>No matching projects</translation>
    </message>
    <message>
        <source>无法删除：项目“%1”正在导入中，请等导入完成。</source>
        <translation>Cannot delete: “%1” is still being imported. Please wait until the import has finished.</translation>
    </message>
</context>
<context>
    <name>kavel::app::ImportBadge</name>
    <message>
        <source>导入失败</source>
        <translation>Import failed</translation>
    </message>
</context>
<context>
    <name>kavel::app::ImportConfirmDialog</name>
    <message>
        <source>继续添加</source>
        <translation>Add More</translation>
    </message>
    <message>
        <source>开始导入</source>
        <translation>Start Import</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>确认导入</source>
        <translation>Confirm Import</translation>
    </message>
    <message>
        <source>即将导入以下文件：</source>
        <translation>These files will be imported:</translation>
    </message>
    <message>
        <source>将创建新项目并开始语音识别。
识别过程中您可以切换到其他页面，完成后会收到系统通知。</source>
        <translation>A new project is created and speech recognition starts.
You can switch to other pages meanwhile; a system notification tells you when it is done.</translation>
    </message>
    <message>
        <source>选择要添加的文件</source>
        <translation>Choose files to add</translation>
    </message>
    <message>
        <source>移除此文件</source>
        <translation>Remove this file</translation>
    </message>
    <message>
        <source>识别语言</source>
        <translation>Recognition language</translation>
    </message>
    <message>
        <source>%1（此服务暂不支持）</source>
        <translation>%1 (not supported by this service)</translation>
    </message>
</context>
<context>
    <name>kavel::app::ImportCover</name>
    <message>
        <source>关闭</source>
        <translation>Close</translation>
    </message>
</context>
<context>
    <name>kavel::app::LoginDialog</name>
    <message>
        <source>获取验证码</source>
        <translation>Get Code</translation>
    </message>
    <message>
        <source>登录</source>
        <translation>Sign In</translation>
    </message>
    <message>
        <source>登录 Kavel</source>
        <translation>Sign in to Kavel</translation>
    </message>
    <message>
        <source>用户名 / 邮箱 / 手机号</source>
        <translation>User name / email / phone number</translation>
    </message>
    <message>
        <source>密码 / 验证码</source>
        <translation>Password / code</translation>
    </message>
    <message>
        <source>&lt;a href=&quot;signup&quot;&gt;没有账户？前往官网注册&lt;/a&gt;</source>
        <translation>&lt;a href=&quot;signup&quot;&gt;No account? Sign up on the website&lt;/a&gt;</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>%1 秒后重发</source>
        <translation>Resend in %1 s</translation>
    </message>
</context>
<context>
    <name>kavel::app::MainEditorView</name>
    <message>
        <source>返回首页</source>
        <translation>Back to Home</translation>
    </message>
    <message>
        <source>导出</source>
        <translation>Export</translation>
    </message>
    <message>
        <source>撤销 (Ctrl+Z)</source>
        <translation>Undo (Ctrl+Z)</translation>
    </message>
    <message>
        <source>重做 (Ctrl+Shift+Z 或 Ctrl+Y)</source>
        <translation>Redo (Ctrl+Shift+Z or Ctrl+Y)</translation>
    </message>
    <message>
        <source>剪切 (Ctrl+X)</source>
        <translation>Cut (Ctrl+X)</translation>
    </message>
    <message>
        <source>拷贝 (Ctrl+C)</source>
        <translation>Copy (Ctrl+C)</translation>
    </message>
    <message>
        <source>粘贴 (Ctrl+V)</source>
        <translation>Paste (Ctrl+V)</translation>
    </message>
    <message>
        <source>删除 (Delete)</source>
        <translation>Delete (Delete)</translation>
    </message>
    <message>
        <source>删除语气词</source>
        <translation>Delete filler words</translation>
    </message>
    <message>
        <source>更正文字 (F2)</source>
        <translation>Correct text (F2)</translation>
    </message>
    <message>
        <source>保存 (Ctrl+S)</source>
        <translation>Save (Ctrl+S)</translation>
    </message>
    <message>
        <source>保留停顿</source>
        <translation>Keep pauses</translation>
    </message>
    <message>
        <source>在相邻的词之间保留录音中原有的停顿：完整保留，或最长不超过所设秒数</source>
        <translation>Keep the recorded pauses between neighbouring words: whole, or at most the seconds set</translation>
    </message>
    <message>
        <source>已保存</source>
        <translation>Saved</translation>
    </message>
    <message>
        <source>搜索</source>
        <translation>Search</translation>
    </message>
    <message>
        <source>搜索 (Ctrl+F)</source>
        <translation>Search (Ctrl+F)</translation>
    </message>
    <message>
        <source>上一个</source>
        <translation>Previous</translation>
    </message>
    <message>
        <source>下一个</source>
        <translation>Next</translation>
    </message>
    <message>
        <source>已删除 %1 个语气词</source>
        <translation>Deleted %1 filler words</translation>
    </message>
    <message>
        <source>没有找到语气词</source>
        <translation>No filler words found</translation>
    </message>
    <message>
        <source>撤销</source>
        <translation>Undo</translation>
    </message>
    <message>
        <source>重做</source>
        <translation>Redo</translation>
    </message>
</context>
<context>
    <name>kavel::app::MainWindow</name>
    <message>
        <source>首页</source>
        <translation>Home</translation>
    </message>
    <message>
        <source>指南</source>
        <translation>Guide</translation>
    </message>
    <message>
        <source>我的</source>
        <translation>Account</translation>
    </message>
    <message>
        <source>文件</source>
        <translation>File</translation>
    </message>
    <message>
        <source>导入新视频…</source>
        <translation>Import New Video…</translation>
    </message>
    <message>
        <source>打开项目…</source>
        <translation>Open Project…</translation>
    </message>
    <message>
        <source>导出…</source>
        <translation>Export…</translation>
    </message>
    <message>
        <source>编辑</source>
        <translation>Edit</translation>
    </message>
    <message>
        <source>撤销</source>
        <translation>Undo</translation>
    </message>
    <message>
        <source>重做</source>
        <translation>Redo</translation>
    </message>
    <message>
        <source>设置</source>
        <translation>Settings</translation>
    </message>
    <message>
        <source>偏好设置…</source>
        <translation>Preferences…</translation>
    </message>
    <message>
        <source>选择 .kavel 项目文件</source>
        <translation>Choose a .kavel project</translation>
    </message>
    <message>
        <source>项目“%1”的转写稿无法读取，项目打开时没有文字。</source>
        <translation>The transcript of the project “%1” could not be read; the project opens without text.</translation>
    </message>
    <message>
        <source>

损坏的转写稿已备份到：
%1</source>
        <translation>

The damaged transcript was backed up to:
%1</translation>
    </message>
    <message>
        <source>转写稿无法读取</source>
        <translation>Transcript Unreadable</translation>
    </message>
    <message>
        <source>确定</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>无法创建项目: </source>
        <translation>Could not create the project: </translation>
    </message>
    <message>
        <source>还有 %1 个项目正在导入。现在退出会中断导入，这些项目将标记为导入失败。确定退出吗？</source>
        <translation>%1 projects are still importing. Quitting now interrupts them and marks them as failed. Quit anyway?</translation>
    </message>
    <message>
        <source>退出</source>
        <translation>Quit</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>恢复未保存的修改？</source>
        <translation>Restore unsaved changes?</translation>
    </message>
    <message>
        <source>恢复</source>
        <translation>Restore</translation>
    </message>
    <message>
        <source>放弃</source>
        <translation>Discard</translation>
    </message>
    <message>
        <source>项目有未保存的修改，是否保存？</source>
        <translation>The project has unsaved changes. Save them?</translation>
    </message>
    <message>
        <source>保存</source>
        <translation>Save</translation>
    </message>
    <message>
        <source>不保存</source>
        <translation>Don’t Save</translation>
    </message>
    <message>
        <source>错误</source>
        <translation>Error</translation>
    </message>
    <message>
        <source>需要登录</source>
        <translation>Sign-in Required</translation>
    </message>
    <message>
        <source>上传视频需要登录账户，请先登录。</source>
        <translation>Uploading a video needs an account. Please sign in first.</translation>
    </message>
    <message>
        <source>去登录</source>
        <translation>Sign In</translation>
    </message>
    <message>
        <source>下一个待核对的词</source>
        <translation>Next word to check</translation>
    </message>
    <message>
        <source>上一个待核对的词</source>
        <translation>Previous word to check</translation>
    </message>
</context>
<context>
    <name>kavel::app::PauseLimitBox</name>
    <message>
        <source>完整</source>
        <translation>whole</translation>
    </message>
    <message>
        <source> 秒</source>
        <translation> s</translation>
    </message>
    <message>
        <source>最长停顿</source>
        <translation>Longest pause</translation>
    </message>
    <message>
        <source>相邻两词之间保留的最长停顿；“完整”保留录音中原有的全部停顿</source>
        <translation>The longest pause kept between two neighbouring words; “whole” keeps every recorded pause</translation>
    </message>
</context>
<context>
    <name>kavel::app::PreviewLoudnessToggle</name>
    <message>
        <source>预览响度标准化</source>
        <translation>Preview at Export Loudness</translation>
    </message>
    <message>
        <source>预览时按导出设置的目标响度播放（未设置时为 -16 LUFS）</source>
        <translation>Plays the preview at the export&apos;s target loudness (-16 LUFS when none is set)</translation>
    </message>
</context>
<context>
    <name>kavel::app::ProjectActions</name>
    <message>
        <source>无法重命名：项目正在导入中，请等导入完成。</source>
        <translation>Cannot rename: the project is importing. Please wait until the import has finished.</translation>
    </message>
    <message>
        <source>无法重命名：找不到这个项目。</source>
        <translation>Cannot rename: the project was not found.</translation>
    </message>
</context>
<context>
    <name>kavel::app::ProjectCard</name>
    <message>
        <source>打开</source>
        <translation>Open</translation>
    </message>
    <message>
        <source>重命名…</source>
        <translation>Rename…</translation>
    </message>
    <message>
        <source>在文件管理器中显示</source>
        <translation>Show in File Manager</translation>
    </message>
    <message>
        <source>删除</source>
        <translation>Delete</translation>
    </message>
</context>
<context>
    <name>kavel::app::ProjectPlaceholder</name>
    <message>
        <source>导入新视频</source>
        <translation>Import New Video</translation>
    </message>
    <message>
        <source>打开项目</source>
        <translation>Open Project</translation>
    </message>
    <message>
        <source>导入视频以开始编辑</source>
        <translation>Import a video to start editing</translation>
    </message>
</context>
<context>
    <name>kavel::app::ProjectTitle</name>
    <message>
        <source>双击重命名</source>
        <translation>Double-click to rename</translation>
    </message>
    <message>
        <source>项目名称</source>
        <translation>Project name</translation>
    </message>
    <message>
        <source>有未保存的修改 (Ctrl+S 保存)</source>
        <translation>Unsaved changes (Ctrl+S to save)</translation>
    </message>
    <message>
        <source>有未保存的修改</source>
        <translation>Unsaved changes</translation>
    </message>
</context>
<context>
    <name>kavel::app::SettingsPage</name>
    <message>
        <source>选择文件夹</source>
        <translation>Choose Folder</translation>
    </message>
    <message>
        <source>清除</source>
        <translation>Clear</translation>
    </message>
    <message>
        <source>偏好设置</source>
        <translation>Preferences</translation>
    </message>
    <message>
        <source>默认导出位置</source>
        <translation>Default export folder</translation>
    </message>
    <message>
        <source>选择默认导出目录</source>
        <translation>Choose the default export folder</translation>
    </message>
    <message>
        <source>未设置（每次导出时选择）</source>
        <translation>Not set (chosen at each export)</translation>
    </message>
    <message>
        <source>界面语言</source>
        <translation>Language</translation>
    </message>
    <message>
        <source>跟随系统</source>
        <translation>Follow the system</translation>
    </message>
    <message>
        <source>重新启动 Kavel 后生效</source>
        <translation>Applies when Kavel starts again</translation>
    </message>
    <message>
        <source>界面语言 / Language</source>
        <translation>Language</translation>
    </message>
</context>
<context>
    <name>kavel::app::SingleInstance</name>
    <message>
        <source>Kavel 已经在运行，但没有响应。请关闭它后再试。</source>
        <translation>Kavel is already running but does not answer. Please close it and try again.</translation>
    </message>
</context>
<context>
    <name>kavel::app::UploadZone</name>
    <message>
        <source>点击上传文件</source>
        <translation>Click to upload files</translation>
    </message>
</context>
<context>
    <name>kavel::app::VideoPlayerView</name>
    <message>
        <source>全屏 (双击视频)</source>
        <translation>Full screen (double-click the video)</translation>
    </message>
    <message>
        <source>旋转</source>
        <translation>Rotate</translation>
    </message>
    <message>
        <source>暂停</source>
        <translation>Pause</translation>
    </message>
    <message>
        <source>播放</source>
        <translation>Play</translation>
    </message>
</context>
<context>
    <name>kavel::app::VideoSurface</name>
    <message>
        <source>音频</source>
        <translation>Audio</translation>
    </message>
</context>
<context>
    <name>kavel::cli</name>
    <message>
        <source>用法：kavel-cli </source>
        <translation>Usage: kavel-cli </translation>
    </message>
    <message>
        <source>段落编号 %1 不存在（项目共有 %2 个段落）</source>
        <translation>There is no paragraph %1 (the project has %2 paragraphs)</translation>
    </message>
    <message>
        <source>转写稿无法读取，原文件已备份到 </source>
        <translation>The transcript could not be read; the original file was backed up to </translation>
    </message>
    <message>
        <source>--keep-pauses 需要 0、0.1 到 2.0 之间的秒数或“完整”(whole)</source>
        <translation>--keep-pauses needs 0, seconds from 0.1 to 2.0, or &quot;whole&quot;</translation>
    </message>
    <message>
        <source>--replace-text 需要 OLD=NEW 形式，而不是“%1”</source>
        <translation>--replace-text needs the form OLD=NEW, not &quot;%1&quot;</translation>
    </message>
    <message>
        <source>跳过“%1”：所在的词不在同一段录音中相连</source>
        <translation>Skipped &quot;%1&quot;: its words are not contiguous in one recording</translation>
    </message>
    <message>
        <source>--move-paragraph 需要 FROM:TO 形式，而不是“%1”</source>
        <translation>--move-paragraph needs the form FROM:TO, not &quot;%1&quot;</translation>
    </message>
    <message>
        <source>目标位置“%1”无效</source>
        <translation>The target position &quot;%1&quot; is not valid</translation>
    </message>
    <message>
        <source>没有与“%1”相符的整词，未替换</source>
        <translation>No whole words match &quot;%1&quot;; nothing replaced</translation>
    </message>
    <message>
        <source>替换了 %1 处</source>
        <translation>Replaced %1 places</translation>
    </message>
    <message>
        <source>完整保留停顿</source>
        <translation>Pauses kept whole</translation>
    </message>
    <message>
        <source>保留停顿，最长 %1 秒</source>
        <translation>Pauses kept, at most %1 s</translation>
    </message>
    <message>
        <source>已去掉停顿</source>
        <translation>Pauses removed</translation>
    </message>
    <message>
        <source>删除了 %1 个词和 %2 个段落，移动了 %3 个段落</source>
        <translation>Deleted %1 words and %2 paragraphs, moved %3 paragraphs</translation>
    </message>
    <message>
        <source>（试运行，未保存）</source>
        <translation> (dry run, not saved)</translation>
    </message>
    <message>
        <source>字幕</source>
        <translation>Subtitles</translation>
    </message>
    <message>
        <source>音频</source>
        <translation>Audio</translation>
    </message>
    <message>
        <source>项目交换文件</source>
        <translation>Interchange file</translation>
    </message>
    <message>
        <source>视频</source>
        <translation>Video</translation>
    </message>
    <message>
        <source>用法：kavel-cli export BUNDLE --out DIR [选项]</source>
        <translation>Usage: kavel-cli export BUNDLE --out DIR [options]</translation>
    </message>
    <message>
        <source>--srt 与 --vtt 只能选一个</source>
        <translation>Choose only one of --srt and --vtt</translation>
    </message>
    <message>
        <source> 词  </source>
        <translation> words  </translation>
    </message>
    <message>
        <source>导出失败</source>
        <translation>Export failed</translation>
    </message>
    <message>
        <source>未写入</source>
        <translation>not written</translation>
    </message>
    <message>
        <source>登录失败：连接服务器超时</source>
        <translation>Sign-in failed: the server did not answer in time</translation>
    </message>
    <message>
        <source>登录失败：用户名或密码错误</source>
        <translation>Sign-in failed: wrong user name or password</translation>
    </message>
    <message>
        <source>登录失败：</source>
        <translation>Sign-in failed: </translation>
    </message>
    <message>
        <source>需要登录：请先在 Kavel 中登录，或使用 --email 和 --password</source>
        <translation>Sign-in needed: sign in in Kavel first, or use --email and --password</translation>
    </message>
    <message>
        <source>--email 和 --password 需要一起给出</source>
        <translation>--email and --password must be given together</translation>
    </message>
    <message>
        <source>--timeout 需要一个秒数</source>
        <translation>--timeout needs a number of seconds</translation>
    </message>
    <message>
        <source>找不到文件：</source>
        <translation>File not found: </translation>
    </message>
    <message>
        <source>无效的服务地址：</source>
        <translation>Invalid service address: </translation>
    </message>
    <message>
        <source>无法创建项目: </source>
        <translation>Could not create the project: </translation>
    </message>
    <message>
        <source>语音识别超时</source>
        <translation>Speech recognition timed out</translation>
    </message>
    <message>
        <source>语音识别失败: 连接服务器超时</source>
        <translation>Speech recognition failed: the server did not answer in time</translation>
    </message>
    <message>
        <source>kavel-cli: 没有“%1”这个命令（见 kavel-cli --help）</source>
        <translation>kavel-cli: there is no command &quot;%1&quot; (see kavel-cli --help)</translation>
    </message>
    <message>
        <source>没有项目：</source>
        <translation>No projects: </translation>
    </message>
    <message>
        <source>项目没有可用的媒体文件</source>
        <translation>The project has no usable media file</translation>
    </message>
    <message>
        <source>无法从媒体中取出画面</source>
        <translation>Could not take a picture from the media</translation>
    </message>
    <message>
        <source>无法写入 </source>
        <translation>Could not write </translation>
    </message>
    <message>
        <source>项目已存在：</source>
        <translation>The project already exists: </translation>
    </message>
    <message>
        <source>文件是空的：</source>
        <translation>The file is empty: </translation>
    </message>
    <message>
        <source>不是可用的媒体文件：</source>
        <translation>Not a usable media file: </translation>
    </message>
    <message>
        <source>媒体文件不完整：</source>
        <translation>The media file is incomplete: </translation>
    </message>
    <message>
        <source>警告：%1，项目按没有词显示</source>
        <translation>Warning: %1; the project is shown without words</translation>
    </message>
    <message>
        <source>语音识别失败: </source>
        <translation>Speech recognition failed: </translation>
    </message>
    <message>
        <source>无效的识别语言代码：%1</source>
        <translation>Invalid recognition language code: %1</translation>
    </message>
    <message>
        <source>导入超时：%1未在限定时间内完成</source>
        <translation>Import timed out: %1 did not finish in time</translation>
    </message>
    <message>
        <source>导入媒体</source>
        <translation>importing the media</translation>
    </message>
    <message>
        <source>--%1 不接受“%2”这个取值</source>
        <translation>--%1: unknown value “%2”</translation>
    </message>
</context>
<context>
    <name>kavel::editor</name>
    <message>
        <source>保存失败: </source>
        <translation>Saving failed: </translation>
    </message>
    <message>
        <source>选择要编辑的视频文件（可多选）</source>
        <translation>Choose the video files to edit (several allowed)</translation>
    </message>
</context>
<context>
    <name>kavel::export</name>
    <message>
        <source>“%1”不是键“%2”的有效取值</source>
        <translation>&quot;%1&quot; is not a valid value of the key &quot;%2&quot;</translation>
    </message>
    <message>
        <source>“%1”不是键“frameRate”的有效取值</source>
        <translation>&quot;%1&quot; is not a valid value of the key &quot;frameRate&quot;</translation>
    </message>
    <message>
        <source>“%1”不是键“interchangeFormat”的有效取值</source>
        <translation>&quot;%1&quot; is not a valid value of the key &quot;interchangeFormat&quot;</translation>
    </message>
    <message>
        <source>视频中没有可用的轨道</source>
        <translation>The video has no usable track</translation>
    </message>
    <message>
        <source>无法创建导出会话</source>
        <translation>Could not create the export session</translation>
    </message>
    <message>
        <source>导出失败</source>
        <translation>Export failed</translation>
    </message>
    <message>
        <source>关</source>
        <translation>Off</translation>
    </message>
    <message>
        <source>-14 LUFS（视频平台）</source>
        <translation>-14 LUFS (video platforms)</translation>
    </message>
    <message>
        <source>-16 LUFS（播客）</source>
        <translation>-16 LUFS (podcasts)</translation>
    </message>
    <message>
        <source>-23 LUFS（广播）</source>
        <translation>-23 LUFS (broadcast)</translation>
    </message>
    <message>
        <source>轻</source>
        <translation>Light</translation>
    </message>
    <message>
        <source>强</source>
        <translation>Strong</translation>
    </message>
    <message>
        <source>响度：%1 LUFS → %2 LUFS，真峰值 %3 dBTP</source>
        <translation>Loudness: %1 LUFS → %2 LUFS, true peak %3 dBTP</translation>
    </message>
    <message>
        <source>（峰值已到上限，未能再提高）</source>
        <translation> (the peaks reached their ceiling; it could not be raised further)</translation>
    </message>
</context>
<context>
    <name>kavel::media</name>
    <message>
        <source>媒体文件中没有声音 </source>
        <translation>The media file has no sound </translation>
    </message>
    <message>
        <source>无法转换媒体文件的声音 </source>
        <translation>Could not convert the sound of the media file </translation>
    </message>
    <message>
        <source>媒体文件的声音无法解码 </source>
        <translation>Could not decode the sound of the media file </translation>
    </message>
    <message>
        <source>无法打开媒体文件 </source>
        <translation>Could not open the media file </translation>
    </message>
    <message>
        <source>无法读取媒体信息 </source>
        <translation>Could not read the media information of </translation>
    </message>
    <message>
        <source>无法解码媒体文件 </source>
        <translation>Could not decode the media file </translation>
    </message>
    <message>
        <source>缺少所需的编码器</source>
        <translation>A required encoder is missing</translation>
    </message>
    <message>
        <source>缺少所需的视频编码器</source>
        <translation>The required video encoder is missing</translation>
    </message>
    <message>
        <source>没有可渲染的内容</source>
        <translation>There is nothing to render</translation>
    </message>
    <message>
        <source>无法创建导出会话</source>
        <translation>Could not create the export session</translation>
    </message>
    <message>
        <source>磁盘空间不足</source>
        <translation>The disk is full</translation>
    </message>
    <message>
        <source>无法写入 </source>
        <translation>Could not write </translation>
    </message>
    <message>
        <source>编码失败</source>
        <translation>Encoding failed</translation>
    </message>
    <message>
        <source>视频画面不足</source>
        <translation>Not enough video frames</translation>
    </message>
    <message>
        <source>视频中没有可用的轨道</source>
        <translation>The video has no usable track</translation>
    </message>
    <message>
        <source>视频无法解码 </source>
        <translation>Could not decode the video </translation>
    </message>
    <message>
        <source>无法转换视频画面 </source>
        <translation>Could not convert the video frames of </translation>
    </message>
    <message>
        <source>媒体文件中没有声音</source>
        <translation>The media file has no sound</translation>
    </message>
    <message>
        <source>媒体文件的长度为 %1 秒，没有可识别的声音</source>
        <translation>The media file is %1 s long and has no sound to recognise</translation>
    </message>
    <message>
        <source>文件中没有音视频轨道：</source>
        <translation>The file has no audio or video track: </translation>
    </message>
    <message>
        <source>媒体引擎无法开始转换音频：</source>
        <translation>The media engine could not start converting the audio: </translation>
    </message>
    <message>
        <source>音频转换没有进展，已停止：</source>
        <translation>The audio conversion made no progress and was stopped: </translation>
    </message>
    <message>
        <source>音频转换没有完成：</source>
        <translation>The audio conversion did not finish: </translation>
    </message>
    <message>
        <source>无法启动媒体引擎：找不到模块目录 </source>
        <translation>Could not start the media engine: module folder not found: </translation>
    </message>
    <message>
        <source>文件中没有画面：</source>
        <translation>The file has no picture: </translation>
    </message>
    <message>
        <source>无法绘制字幕：没有可用的字体</source>
        <translation>Cannot draw subtitles: no usable font</translation>
    </message>
    <message>
        <source>无法绘制字幕：不支持的画面格式</source>
        <translation>Cannot draw subtitles: unsupported picture format</translation>
    </message>
    <message>
        <source>无法处理声音</source>
        <translation>Cannot process the sound</translation>
    </message>
</context>
<context>
    <name>kavel::model</name>
    <message>
        <source>（%1，进程 %2）</source>
        <translation> (%1, process %2)</translation>
    </message>
    <message>
        <source>项目“%1”已在另一个 Kavel 窗口或程序中打开%2，请先在那里关闭它。</source>
        <translation>The project “%1” is open in another Kavel window or program%2. Please close it there first.</translation>
    </message>
    <message>
        <source>未能打开项目“%1”：无法在项目文件夹中写入%2。</source>
        <translation>Could not open the project “%1”: cannot write in the project folder%2.</translation>
    </message>
    <message>
        <source>（磁盘空间不足）</source>
        <translation> (the disk is full)</translation>
    </message>
    <message>
        <source>未能打开文件“%1”，因为它不存在。</source>
        <translation>The file “%1” could not be opened because it does not exist.</translation>
    </message>
    <message>
        <source>未能读取文件“%1”。</source>
        <translation>The file “%1” could not be read.</translation>
    </message>
    <message>
        <source>未能存储文件“%1”。</source>
        <translation>The file “%1” could not be saved.</translation>
    </message>
    <message>
        <source>未能拷贝文件“%1”。</source>
        <translation>The file “%1” could not be copied.</translation>
    </message>
    <message>
        <source>未能创建文件夹“%1”。</source>
        <translation>The folder “%1” could not be created.</translation>
    </message>
    <message>
        <source>名称“%1”不能用作文件名。</source>
        <translation>The name “%1” cannot be used as a file name.</translation>
    </message>
    <message>
        <source>数据格式不正确：%1</source>
        <translation>The data is not in the right format: %1</translation>
    </message>
    <message>
        <source>数据格式不正确：%1（位于 %2）</source>
        <translation>The data is not in the right format: %1 (at %2)</translation>
    </message>
    <message>
        <source>项目中没有源视频文件</source>
        <translation>The project has no source video file</translation>
    </message>
    <message>
        <source>视频中没有音频轨道</source>
        <translation>The video has no audio track</translation>
    </message>
    <message>
        <source>音频提取失败</source>
        <translation>Audio extraction failed</translation>
    </message>
    <message>
        <source>项目文件不存在</source>
        <translation>The project file does not exist</translation>
    </message>
    <message>
        <source>磁盘空间不足</source>
        <translation>The disk is full</translation>
    </message>
    <message>
        <source>没有权限</source>
        <translation>permission denied</translation>
    </message>
    <message>
        <source>磁盘是只读的</source>
        <translation>the disk is read-only</translation>
    </message>
    <message>
        <source>这是一个文件夹</source>
        <translation>it is a folder</translation>
    </message>
    <message>
        <source>已存在同名文件</source>
        <translation>a file of that name exists</translation>
    </message>
    <message>
        <source>UUID 字符串</source>
        <translation>a UUID string</translation>
    </message>
    <message>
        <source>数字</source>
        <translation>a number</translation>
    </message>
    <message>
        <source>整数</source>
        <translation>an integer</translation>
    </message>
    <message>
        <source>缺少必需的键“%1”</source>
        <translation>the required key &quot;%1&quot; is missing</translation>
    </message>
    <message>
        <source>键“%1”的值应为%2</source>
        <translation>the value of the key &quot;%1&quot; should be %2</translation>
    </message>
    <message>
        <source>应为 JSON 对象</source>
        <translation>a JSON object was expected</translation>
    </message>
    <message>
        <source>应为 JSON 数组</source>
        <translation>a JSON array was expected</translation>
    </message>
    <message>
        <source>字符串</source>
        <translation>a string</translation>
    </message>
    <message>
        <source>布尔值</source>
        <translation>a boolean</translation>
    </message>
    <message>
        <source>数组</source>
        <translation>an array</translation>
    </message>
    <message>
        <source>键“%1”的日期“%2”不是 ISO 8601 格式</source>
        <translation>the date &quot;%2&quot; of the key &quot;%1&quot; is not in ISO 8601 format</translation>
    </message>
    <message>
        <source>JSON 无法解析</source>
        <translation>the JSON cannot be parsed</translation>
    </message>
    <message>
        <source>不是媒体文件夹中的文件名</source>
        <translation>not a file name in the media folder</translation>
    </message>
    <message>
        <source>日期“%1”不是 ISO 8601 格式</source>
        <translation>the date &quot;%1&quot; is not in ISO 8601 format</translation>
    </message>
    <message>
        <source>停顿长度超出范围</source>
        <translation>the pause length is out of range</translation>
    </message>
    <message>
        <source>项目名称不能为空</source>
        <translation>The project name cannot be empty</translation>
    </message>
    <message>
        <source>项目名称不能是“%1”</source>
        <translation>The project name cannot be “%1”</translation>
    </message>
    <message>
        <source>项目名称不能包含“/”</source>
        <translation>The project name cannot contain “/”</translation>
    </message>
    <message>
        <source>项目名称不能包含空字符</source>
        <translation>The project name cannot contain a null character</translation>
    </message>
    <message>
        <source>项目名称过长</source>
        <translation>The project name is too long</translation>
    </message>
    <message>
        <source>未命名项目</source>
        <translation>Untitled Project</translation>
    </message>
    <message>
        <source>32 位整数</source>
        <translation>a 32-bit integer</translation>
    </message>
    <message>
        <source>未能将“%1”移到回收站（%2），它没有被删除。</source>
        <translation>“%1” could not be moved to the trash (%2); it was not deleted.</translation>
    </message>
    <message>
        <source>它已不存在</source>
        <translation>it no longer exists</translation>
    </message>
    <message>
        <source>所在磁盘没有可用的回收站</source>
        <translation>its disk has no usable trash</translation>
    </message>
    <message>
        <source>无法写入回收站</source>
        <translation>cannot write to the trash</translation>
    </message>
    <message>
        <source>无法移动</source>
        <translation>cannot move it</translation>
    </message>
    <message>
        <source>未能恢复“%1”：原位置已有同名项目。</source>
        <translation>Could not restore “%1”: a project of that name is in its place.</translation>
    </message>
    <message>
        <source>未能恢复“%1”：它已不在回收站中。</source>
        <translation>Could not restore “%1”: it is no longer in the trash.</translation>
    </message>
    <message>
        <source>未能恢复“%1”。</source>
        <translation>Could not restore “%1”.</translation>
    </message>
    <message>
        <source>词“%1”的时间超出范围</source>
        <translation>the time of the word &quot;%1&quot; is out of range</translation>
    </message>
    <message>
        <source>词“%1”的结束时间早于开始时间</source>
        <translation>the word &quot;%1&quot; ends before it starts</translation>
    </message>
</context>
<context>
    <name>kavel::service</name>
    <message>
        <source>服务器要求转到另一个地址（</source>
        <translation>The server redirected to another address (</translation>
    </message>
    <message>
        <source>），为保护登录信息已拒绝</source>
        <translation>); refused to protect the sign-in details</translation>
    </message>
    <message>
        <source>服务器错误 (</source>
        <translation>Server error (</translation>
    </message>
    <message>
        <source>数据解析错误: </source>
        <translation>Data parsing error: </translation>
    </message>
    <message>
        <source>无效的服务器响应</source>
        <translation>Invalid server response</translation>
    </message>
    <message>
        <source>无法连接到服务器</source>
        <translation>Cannot connect to the server</translation>
    </message>
    <message>
        <source>连接服务器超时</source>
        <translation>The server did not answer in time</translation>
    </message>
    <message>
        <source>服务器的安全证书不受信任</source>
        <translation>The server’s security certificate is not trusted</translation>
    </message>
    <message>
        <source>网络错误</source>
        <translation>Network error</translation>
    </message>
    <message>
        <source>缺少键“%1”</source>
        <translation>the key &quot;%1&quot; is missing</translation>
    </message>
    <message>
        <source>应为日期字符串</source>
        <translation>a date string was expected</translation>
    </message>
    <message>
        <source>日期无法解析</source>
        <translation>the date cannot be parsed</translation>
    </message>
    <message>
        <source>应为 JSON 对象</source>
        <translation>a JSON object was expected</translation>
    </message>
    <message>
        <source>服务器中断了连接</source>
        <translation>The server closed the connection</translation>
    </message>
    <message>
        <source>：颁发给“%1”</source>
        <translation>: issued to “%1”</translation>
    </message>
    <message>
        <source>自签名证书</source>
        <translation>self-signed</translation>
    </message>
    <message>
        <source>颁发者不受信任</source>
        <translation>its issuer is not trusted</translation>
    </message>
    <message>
        <source>证书已过期</source>
        <translation>expired</translation>
    </message>
    <message>
        <source>证书尚未生效</source>
        <translation>not yet valid</translation>
    </message>
    <message>
        <source>证书上的名称与服务器地址不符</source>
        <translation>the name on it does not match the server’s address</translation>
    </message>
    <message>
        <source>（%1）</source>
        <translation> (%1)</translation>
    </message>
</context>
<context>
    <name>kavel::service::LoginModel</name>
    <message>
        <source>无法打开官网注册页</source>
        <translation>Could not open the sign-up page</translation>
    </message>
    <message>
        <source>发送验证码失败</source>
        <translation>Sending the code failed</translation>
    </message>
    <message>
        <source>登录失败：用户名或密码错误</source>
        <translation>Sign-in failed: wrong user name or password</translation>
    </message>
    <message>
        <source>登录失败</source>
        <translation>Sign-in failed</translation>
    </message>
</context>
<context>
    <name>kavel::ui::MagneticTextStripView</name>
    <message>
        <source>播放此句（循环）</source>
        <translation>Play This Sentence (Loop)</translation>
    </message>
    <message>
        <source>删除段落</source>
        <translation>Delete Paragraph</translation>
    </message>
</context>
<context>
    <name>kavel::ui::ParagraphSection</name>
    <message>
        <source>说话人 %1</source>
        <translation>Speaker %1</translation>
    </message>
</context>
<context>
    <name>kavel::ui::TimelineView</name>
    <message>
        <source>放大</source>
        <translation>Zoom In</translation>
    </message>
    <message>
        <source>缩小</source>
        <translation>Zoom Out</translation>
    </message>
</context>
<context>
    <name>kavel::ui::TrackHeader</name>
    <message>
        <source>视频</source>
        <translation>Video</translation>
    </message>
    <message>
        <source>音频</source>
        <translation>Audio</translation>
    </message>
    <message>
        <source>隐藏视频轨道</source>
        <translation>Hide the video track</translation>
    </message>
    <message>
        <source>静音音频轨道</source>
        <translation>Mute the audio track</translation>
    </message>
    <message>
        <source>锁定轨道</source>
        <translation>Lock the track</translation>
    </message>
</context>
</TS>
